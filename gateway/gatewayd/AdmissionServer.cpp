#include "AdmissionServer.h"

#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <event2/thread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

#include "TelmiAdmission.h"
#include "UnixSocketPath.h"

namespace gatewayd {
namespace {

// nginx keeps its connections for 10 s at most; waiting longer leaves the closing to nginx, so
// that it never sends into a connection being closed.
constexpr int kIdleTimeoutSec = 15;
// nginx hands on headers of at most 4 x 8 KiB (large_client_header_buffers) plus its own.
constexpr ev_ssize_t kMaxHeadersBytes = 64 * 1024;

// stop() ends the loop from another thread: the loop must be told to wake. Each answer turns a
// connection's read and write interest off and on again; the change list hands epoll only the
// net change once per loop turn, which saves system calls on every check.
event_base* newNotifiableBase() {
    static const bool threadsReady = evthread_use_pthreads() == 0;
    if (!threadsReady) {
        return nullptr;
    }
    std::unique_ptr<event_config, decltype(&event_config_free)> config(event_config_new(), event_config_free);
    if (config == nullptr || event_config_set_flag(config.get(), EVENT_BASE_FLAG_EPOLL_USE_CHANGELIST) != 0) {
        return nullptr;
    }
    return event_base_new_with_config(config.get());
}

std::string header(const evkeyvalq* headers, const char* name) {
    const char* value = evhttp_find_header(headers, name);
    return value != nullptr ? value : "";
}

}  // namespace

AdmissionServer::AdmissionServer(const TelmiLibrary& library)
    : library_(library), base_(newNotifiableBase(), event_base_free), http_(nullptr, evhttp_free) {
    if (base_ != nullptr) {
        http_.reset(evhttp_new(base_.get()));
    }
    if (http_ != nullptr) {
        evhttp_set_timeout(http_.get(), kIdleTimeoutSec);
        evhttp_set_max_headers_size(http_.get(), kMaxHeadersBytes);
        evhttp_set_max_body_size(http_.get(), 0);  // nginx passes no body to the check
        evhttp_set_allowed_methods(http_.get(), EVHTTP_REQ_GET);
        evhttp_set_gencb(http_.get(), answer, this);
    }
}

AdmissionServer::~AdmissionServer() {
    stop();
    http_.reset();  // closes the connections before the loop they belong to goes
    if (!path_.empty()) {
        ::unlink(path_.c_str());
    }
}

bool AdmissionServer::bindUnix(const std::string& path, std::string& error) {
    if (http_ == nullptr) {
        error = "the admission check's event loop cannot be set up";
        return false;
    }
    gwio::UniqueFd fd = gwio::listenOnUnixSocket(path, SOCK_NONBLOCK, error);
    if (!fd.valid()) {
        return false;
    }
    if (evhttp_accept_socket(http_.get(), fd.get()) != 0) {
        error = "the admission check cannot accept on " + path;
        return false;
    }
    fd.release();  // the listener owns it now
    path_ = path;
    return true;
}

void AdmissionServer::start() {
    loop_ = std::thread([this] { event_base_dispatch(base_.get()); });
}

void AdmissionServer::stop() {
    if (loop_.joinable()) {
        // Unlike a break, an exit is an event of the loop's own: one asked for before the loop
        // began to run is not lost.
        event_base_loopexit(base_.get(), nullptr);
        loop_.join();
    }
}

void AdmissionServer::answer(evhttp_request* request, void* server) {
    const evkeyvalq* in = evhttp_request_get_input_headers(request);
    const char* target = evhttp_request_get_uri(request);
    const AdmissionAnswer answer =
        decideAdmission(static_cast<AdmissionServer*>(server)->library_,
                        {header(in, "X-TELMI-Mode"), header(in, "X-TELMI-Port"), header(in, "X-TELMI-Client"),
                         header(in, "X-TELMI-Method"), target != nullptr ? target : "", header(in, "X-TELMI-Target"),
                         header(in, "Authorization")});
    evkeyvalq* out = evhttp_request_get_output_headers(request);
    for (const auto& [name, value] : answer.headers) {
        evhttp_add_header(out, name.c_str(), value.c_str());
    }
    evhttp_send_reply(request, answer.status, answer.status == 204 ? "No Content" : "Refused", nullptr);
}

}  // namespace gatewayd
