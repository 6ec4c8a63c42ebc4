import pytest

import harness

# The sanitizers have an allocator of their own, which no library can stand in front of.
collect_ignore = [] if harness.WHOLE_TABLES else ["test_allocations.py"]


@pytest.fixture(autouse=True)
def fresh():
    harness.clean_state()
    yield
    assert harness.order("pending")["pending"] == 0, "a planned misbehaviour was never met"


@pytest.fixture
def admin():
    return harness.add_session()


@pytest.fixture
def reader():
    return harness.add_session(user="reader", role="read-only")


@pytest.fixture(scope="module")
def access_points():
    harness.sql((harness.CHECKOUT / "tests/e2e/ap_search.sql").read_text(), "gapdb")
    yield
    harness.sql("TRUNCATE global_ap_table, global_radio_table", "gapdb")
