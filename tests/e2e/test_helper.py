"""What the CLI helper may do: take its time."""

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
