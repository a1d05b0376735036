// The device log: the one sink of diagnostics.
#pragma once

// Logs one message, formatted as `printf` does. Called at any time. A message may end in a line
// feed and may be as long as the list of all rules; it may contain any bytes that a client sent,
// which must not be able to forge a line of the log. Never fails and never throws.
[[gnu::format(printf, 1, 2)]] void rule_log(const char* format, ...);
