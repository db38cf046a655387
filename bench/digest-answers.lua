-- wrk script: every request carries a Digest answer of its own, read from the file
-- <prefix>.<thread number>, one Authorization value a line, each with the next nonce count,
-- as a real client sends them. Prints the 99th percentile latency in microseconds, the requests
-- made and those that failed (non-2xx answers and socket errors).
local threads = {}

function setup(thread)
    thread:set("number", #threads + 1)
    table.insert(threads, thread)
end

function init(args)
    answers = {}
    for line in io.lines(args[1] .. "." .. number) do
        answers[#answers + 1] = line
    end
    next_answer = 1
end

function request()
    local answer = answers[next_answer]
    next_answer = next_answer + 1
    return wrk.format(nil, nil, {["Authorization"] = answer})
end

function done(summary, latency, requests)
    local e = summary.errors
    io.write(string.format("p99_us %d requests %d failed %d\n", latency:percentile(99), summary.requests,
                           e.status + e.connect + e.read + e.write + e.timeout))
end
