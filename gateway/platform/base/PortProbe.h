#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zqbase {

struct TcpListener {
    uint16_t port;
    std::string address;  // local address as text ("0.0.0.0", "::", "127.0.0.1", ...)
    bool wildcard;        // bound to every address of its family
    uint64_t inode;       // the socket's inode, as /proc/<pid>/fd shows it ("socket:[inode]")
};

// The TCP sockets listening on the port, IPv4 and IPv6, from the kernel's socket diagnostics
// over netlink (what ss uses); empty optional when the kernel cannot be asked.
std::optional<std::vector<TcpListener>> tcpListeners(uint16_t port);

// The ports from first to last on which one of the processes listens, from one dump of the
// kernel's listener table; empty optional when the kernel cannot be asked.
std::optional<std::set<uint16_t>> portsListenedBy(const std::list<int>& pids, uint16_t first, uint16_t last);

// Whether anything listens on the port; empty optional when the kernel cannot be asked.
std::optional<bool> tcpListening(uint16_t port);

// The processes that hold the socket with that inode, among those this process may look into.
std::vector<int> holdersOf(uint64_t inode);

// Whether one of the processes holds the socket with that inode among its descriptors.
bool heldByAny(const std::list<int>& pids, uint64_t inode);

}  // namespace zqbase
