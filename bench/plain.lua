-- wrk script for the rows without credentials: prints the 99th percentile latency in microseconds.
function done(summary, latency, requests)
    io.write(string.format("p99_us %d\n", latency:percentile(99)))
end
