// Captures what a piece of code sends to the system log.
//
// The code runs in a forked child inside a private mount namespace in which /dev is a fresh
// tmpfs holding only a datagram socket at /dev/log that the child itself listens on; the real
// system log is never touched. Needs root (CAP_SYS_ADMIN) for the namespace.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kxtest {

// Runs `body` as described and returns the raw messages that reached /dev/log, in order
// ("<priority>timestamp ident[pid]: text"). Nothing when the namespace could not be made
// (not root), so that callers can skip.
std::optional<std::vector<std::string>> CaptureSyslog(const std::function<void()>& body);

}  // namespace kxtest
