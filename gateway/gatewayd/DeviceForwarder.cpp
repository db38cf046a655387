#include "DeviceForwarder.h"

#include <strings.h>

#include "DeviceConnections.h"
#include "GatewaydLog.h"
#include "ZQGatewayDevices.h"

namespace gatewayd {
namespace {

DeviceConnections connections;

// Headers that belong to one connection, to the gateway, or that the HTTP layer writes itself.
bool staysHere(const std::string& name) {
    static const char* const kNames[] = {"Authorization", "Connection", "Keep-Alive", "Proxy-Connection",
                                         "Proxy-Authorization", "TE", "Trailer", "Transfer-Encoding", "Upgrade",
                                         "Host", "Content-Length", "X-TELMI-Port", "X-Real-IP",
                                         "REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR", "LOCAL_PORT"};
    for (const char* own : kNames) {
        if (::strcasecmp(name.c_str(), own) == 0) {
            return true;
        }
    }
    return false;
}

void answerText(httplib::Response& res, int status, const std::string& message) {
    res.status = status;
    res.set_content(message + "\n", "text/plain");
}

// Requests that may be sent a second time when a kept connection turned out closed: the
// device may have carried out the first one before the connection broke.
bool idempotent(const std::string& method) {
    return method == "GET" || method == "HEAD" || method == "PUT" || method == "DELETE" || method == "OPTIONS";
}

}  // namespace

void forwardToDevice(const std::string& deviceIndex, const std::string& clientAddress, const httplib::Request& req,
                     httplib::Response& res) {
    const auto device = std::dynamic_pointer_cast<ZQGateway::CGatewayDevice>(ZQ_DeviceMgr_GetDevice(deviceIndex));
    if (device == nullptr) {
        answerText(res, 404, "the device is no longer attached to the gateway");
        return;
    }
    const std::string address = device->getTelmiAddress();
    DeviceConnections::Lease lease = connections.take(address);
    if (lease.client == nullptr) {
        answerText(res, 502, "the device has no usable TELMI address");
        return;
    }

    httplib::Request toDevice;
    toDevice.method = req.method;
    toDevice.path = req.target;
    toDevice.body = req.body;
    for (const auto& [name, value] : req.headers) {
        if (!staysHere(name) && ::strcasecmp(name.c_str(), "X-Forwarded-For") != 0) {
            toDevice.headers.emplace(name, value);
        }
    }
    toDevice.headers.emplace("X-Forwarded-For", clientAddress);

    httplib::Result answer = lease.client->send(toDevice);
    if (!answer && lease.reused && idempotent(req.method)) {
        // The device closed the kept connection while it waited (its keep-alive time ended).
        lease.client = DeviceConnections::open(address);
        answer = lease.client->send(toDevice);
    }
    if (!answer) {
        GATEWAYD_LOG(4, "device %s at %s did not answer %s %s: %s", deviceIndex.c_str(), address.c_str(),
                     req.method.c_str(), req.target.c_str(), httplib::to_string(answer.error()).c_str());
        answerText(res, 502, "the device did not answer: " + httplib::to_string(answer.error()));
        return;
    }
    res.status = answer->status;
    for (const auto& [name, value] : answer->headers) {
        if (!staysHere(name)) {
            res.headers.emplace(name, value);
        }
    }
    res.body = answer->body;
    connections.giveBack(address, std::move(lease.client));
}

}  // namespace gatewayd
