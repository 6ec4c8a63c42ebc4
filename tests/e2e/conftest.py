import pytest

import harness

# The sanitizers have an allocator of their own, which no library can stand in front of; and nothing to find in
# what the HTTP server does by itself.
collect_ignore = [] if harness.WHOLE_TABLES else [
    "test_allocations.py", "test_browser.py", "test_doors.py", "test_headers.py"]


def pytest_configure(config):
    config.addinivalue_line("markers", "cgi: needs a program that is started for the request")
    config.addinivalue_line("markers", "warm: needs workers")


def pytest_collection_modifyitems(config, items):
    """What needs the other way of serving is left out."""
    other = "cgi" if harness.WORKERS else "warm"
    config.hook.pytest_deselected(items=[item for item in items if item.get_closest_marker(other)])
    items[:] = [item for item in items if not item.get_closest_marker(other)]


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
