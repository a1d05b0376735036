// The device log: the one sink of diagnostics.
#pragma once

// Logs one message, formatted as `printf` does. A message may end in a line feed and may carry a
// whole request body or multicall document; it may hold any bytes that a client sent, which the log
// must not mistake for lines of its own. Never fails and never throws.
[[gnu::format(printf, 1, 2)]] void rule_log(const char* format, ...);
