-- What wrk found out, as one line of JSON.
function done(summary, latency)
    local wrong = summary.errors
    io.write(string.format(
        '{"p50": %.1f, "p99": %.1f, "requests": %d, "bytes": %d, "seconds": %.6f, "errors": %d}\n',
        latency:percentile(50), latency:percentile(99), summary.requests, summary.bytes,
        summary.duration / 1e6,
        wrong.connect + wrong.read + wrong.write + wrong.status + wrong.timeout))
end
