#include "DeviceForwarder.h"

#include <strings.h>

#include "GatewaydLog.h"
#include "ZQGatewayDevices.h"

namespace gatewayd {
namespace {

constexpr time_t kConnectTimeoutSec = 5;
constexpr time_t kDeviceTimeoutSec = 30;

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

}  // namespace

void forwardToDevice(const std::string& deviceIndex, const std::string& clientAddress, const httplib::Request& req,
                     httplib::Response& res) {
    const auto device = std::dynamic_pointer_cast<ZQGateway::CGatewayDevice>(ZQ_DeviceMgr_GetDevice(deviceIndex));
    if (device == nullptr) {
        answerText(res, 404, "the device is no longer attached to the gateway");
        return;
    }
    const std::string address = device->getTelmiAddress();
    httplib::Client client(address);
    if (address.empty() || !client.is_valid()) {
        answerText(res, 502, "the device has no usable TELMI address");
        return;
    }
    client.set_connection_timeout(kConnectTimeoutSec);
    client.set_read_timeout(kDeviceTimeoutSec);
    client.set_write_timeout(kDeviceTimeoutSec);
    client.set_url_encode(false);  // the target is passed on exactly as the client wrote it
    client.set_decompress(false);

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

    const httplib::Result answer = client.send(toDevice);
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
}

}  // namespace gatewayd
