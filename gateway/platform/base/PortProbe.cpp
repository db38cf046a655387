#include "base/PortProbe.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "base/ProcessTools.h"

namespace zqbase {
namespace {

constexpr uint32_t kListenState = 10;  // TCP_LISTEN in the kernel's numbering

bool ask(int fd, const void* message, size_t size) {
    sockaddr_nl kernel {};
    kernel.nl_family = AF_NETLINK;
    return ::sendto(fd, message, size, 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel)) >= 0;
}

// Reads the kernel's answers to one request and hands each socket to take; false when the
// request failed. A dump ends with NLMSG_DONE, a single lookup after its one answer.
template <typename Take>
bool readAnswers(int fd, bool dump, Take take) {
    alignas(nlmsghdr) char buffer[16384];
    for (;;) {
        ssize_t received = ::recv(fd, buffer, sizeof(buffer), 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received <= 0) {
            return false;
        }
        int remaining = static_cast<int>(received);
        for (auto* h = reinterpret_cast<nlmsghdr*>(buffer); NLMSG_OK(h, remaining); h = NLMSG_NEXT(h, remaining)) {
            if (h->nlmsg_type == NLMSG_DONE) {
                return true;
            }
            if (h->nlmsg_type == NLMSG_ERROR || h->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg))) {
                return false;
            }
            take(*static_cast<const inet_diag_msg*>(NLMSG_DATA(h)));
            if (!dump) {
                return true;
            }
        }
    }
}

// Every TCP listener on the ports from first to last, IPv4 and IPv6, in one dump. The older
// request form is used because it covers both families in a single walk of the kernel's listener
// table, which is what a dump costs; for a single port the kernel skips the others itself.
bool dumpListeners(int fd, uint16_t first, uint16_t last, std::vector<TcpListener>& found) {
    struct {
        nlmsghdr header;
        inet_diag_req request;
    } message {};
    message.header.nlmsg_len = sizeof(message);
    message.header.nlmsg_type = TCPDIAG_GETSOCK;
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message.request.idiag_family = AF_UNSPEC;
    message.request.idiag_states = 1u << kListenState;
    message.request.id.idiag_sport = first == last ? htons(first) : 0;
    return ask(fd, &message, sizeof(message)) && readAnswers(fd, true, [&](const inet_diag_msg& diag) {
               const uint16_t port = ntohs(diag.id.idiag_sport);
               if (port < first || port > last || (diag.idiag_family != AF_INET && diag.idiag_family != AF_INET6)) {
                   return;
               }
               char text[INET6_ADDRSTRLEN] = {};
               ::inet_ntop(diag.idiag_family, diag.id.idiag_src, text, sizeof(text));
               static const uint32_t kAny[4] = {0, 0, 0, 0};
               const size_t width = diag.idiag_family == AF_INET ? 4 : 16;
               found.push_back({port, text, std::memcmp(diag.id.idiag_src, kAny, width) == 0, diag.idiag_inode});
           });
}

// Whether a listener takes connections to 127.0.0.1 on the port: the kernel looks it up as it
// would for an arriving connection (wildcard and dual-stack listeners included), without walking
// its listener table. Empty when the kernel cannot be asked; false says nothing about listeners
// on other addresses.
std::optional<bool> loopbackListener(int fd, uint16_t port) {
    struct {
        nlmsghdr header;
        inet_diag_req_v2 request;
    } message {};
    message.header.nlmsg_len = sizeof(message);
    message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    message.header.nlmsg_flags = NLM_F_REQUEST;
    message.request.sdiag_family = AF_INET;
    message.request.sdiag_protocol = IPPROTO_TCP;
    message.request.idiag_states = 1u << kListenState;
    message.request.id.idiag_sport = htons(port);
    message.request.id.idiag_src[0] = htonl(INADDR_LOOPBACK);
    message.request.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    message.request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    if (!ask(fd, &message, sizeof(message))) {
        return std::nullopt;
    }
    bool listening = false;
    // Not found comes back as an error answer, which is not a failure of the kernel here.
    readAnswers(fd, false, [&](const inet_diag_msg& diag) { listening = diag.idiag_state == kListenState; });
    return listening;
}

// The diagnostics socket of this thread: opening and closing one per probe cost about as much as
// the kernel's answer to it. A socket whose answers may not have been read to their end is
// dropped, and a forked child opens its own rather than share its parent's.
class DiagSocket {
public:
    ~DiagSocket() { drop(); }
    int get() {
        if (fd_ >= 0 && owner_ != ::getpid()) {
            drop();
        }
        if (fd_ < 0) {
            fd_ = ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
            owner_ = ::getpid();
        }
        return fd_;
    }
    void drop() {
        if (fd_ >= 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }

private:
    int fd_ = -1;
    pid_t owner_ = 0;
};

thread_local DiagSocket diagSocket;

// The socket inodes among a process's descriptors when they were last listed. Reading
// /proc/<pid>/fd costs a readlink per descriptor, and a port list asks about hundreds of ports of
// the same nginx at once, so a listing serves the probes of the next moment. A socket found in
// it is still that process's: a live socket keeps its inode, and nginx hands listeners only to
// its own workers. A socket not found in it is always looked for afresh.
struct SocketListing {
    std::chrono::steady_clock::time_point taken;
    std::unordered_set<uint64_t> inodes;
};

constexpr auto kListingLifetime = std::chrono::seconds(1);
std::mutex listingsMutex;
std::unordered_map<int, SocketListing> listings;

std::unordered_set<uint64_t> socketInodes(int pid) {
    std::unordered_set<uint64_t> inodes;
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    DIR* fds = ::opendir(dir.c_str());
    if (fds == nullptr) {
        return inodes;
    }
    while (dirent* entry = ::readdir(fds)) {
        char target[64];
        const ssize_t n = ::readlinkat(::dirfd(fds), entry->d_name, target, sizeof(target) - 1);
        if (n <= 0) {
            continue;
        }
        target[n] = '\0';
        unsigned long long inode = 0;
        if (std::sscanf(target, "socket:[%llu]", &inode) == 1) {
            inodes.insert(inode);
        }
    }
    ::closedir(fds);
    return inodes;
}

std::optional<std::vector<TcpListener>> listenersOn(uint16_t first, uint16_t last) {
    const int fd = diagSocket.get();
    std::vector<TcpListener> found;
    if (fd < 0 || !dumpListeners(fd, first, last, found)) {
        diagSocket.drop();
        return std::nullopt;
    }
    return found;
}

}  // namespace

std::optional<std::vector<TcpListener>> tcpListeners(uint16_t port) { return listenersOn(port, port); }

std::optional<std::set<uint16_t>> portsListenedBy(const std::list<int>& pids, uint16_t first, uint16_t last) {
    const auto listeners = listenersOn(first, last);
    if (!listeners) {
        return std::nullopt;
    }
    std::set<uint16_t> ports;
    for (const TcpListener& listener : *listeners) {
        if (heldByAny(pids, listener.inode)) {
            ports.insert(listener.port);
        }
    }
    return ports;
}

std::optional<bool> tcpListening(uint16_t port) {
    const int fd = diagSocket.get();
    // The lookup answers the usual case (nginx listening on every address) at the cost of a
    // hash lookup; only a port found free there is looked for in the whole table.
    std::optional<bool> listening = fd < 0 ? std::nullopt : loopbackListener(fd, port);
    if (listening && !*listening) {
        std::vector<TcpListener> found;
        listening = dumpListeners(fd, port, port, found) ? std::optional<bool>(!found.empty()) : std::nullopt;
    }
    if (!listening) {
        diagSocket.drop();
    }
    return listening;
}

bool heldByAny(const std::list<int>& pids, uint64_t inode) {
    const auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(listingsMutex);
    for (int pid : pids) {
        auto it = listings.find(pid);
        if (it != listings.end() && now - it->second.taken < kListingLifetime && it->second.inodes.count(inode) != 0) {
            return true;
        }
    }
    // Not in a recent listing: list the processes again, so a socket opened since is seen.
    bool held = false;
    for (int pid : pids) {
        SocketListing& listing = listings[pid];
        listing = {now, socketInodes(pid)};
        held = held || listing.inodes.count(inode) != 0;
    }
    for (auto it = listings.begin(); it != listings.end();) {
        it = now - it->second.taken >= kListingLifetime ? listings.erase(it) : std::next(it);
    }
    return held;
}

std::vector<int> holdersOf(uint64_t inode) {
    std::vector<int> holders;
    for (int pid : allProcesses()) {
        if (socketInodes(pid).count(inode) != 0) {
            holders.push_back(pid);
        }
    }
    return holders;
}

}  // namespace zqbase
