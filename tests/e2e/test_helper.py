"""What the CLI helper may do: take its time, and answer with a message."""

import threading

import harness


def test_a_late_reply_holds_up_nobody_else(admin, reader):
    harness.plan(hold=True)
    late = []
    thread = threading.Thread(target=lambda: late.append(harness.execute(admin).text))
    thread.start()
    harness.order("wait-held")
    assert harness.execute(reader).text == harness.SHOW_HOSTNAME
    assert late == []
    harness.order("release")
    thread.join()
    assert late == [harness.SHOW_HOSTNAME]


def test_a_message_fits_or_is_a_failure(admin):
    for size, answer in ((1023, "m" * 1023), (1024, "Failed to read socket: Success")):
        harness.plan(output="", message="m" * size)
        harness.assert_cli_error(harness.execute(admin), answer)
