// The media module's command protocol: one JSON command in, one JSON answer out.
#pragma once

#include <json/json.h>

#include <string>

#include "DeviceDirectory.h"
#include "RtspListeners.h"

namespace mediad {

// "statusCode" values of refusals, HTTP-like so that a reader knows them at sight.
enum RefusalCode : int {
    refusedMalformed = 400,    // not JSON, wrong envelope, a member missing or of the wrong type
    refusedUnknown = 404,      // no such device, or a request uri the module does not serve
    refusedMethod = 405,       // an unknown command, or a gateway request other than PUT
    refusedPortTaken = 409,    // another program or another device holds the RTSP port
    refusedTooLarge = 413,     // the command frame exceeds the size limit
    refusedStoreFailed = 503,  // the device store could not be read
};

class MediaCommands {
public:
    MediaCommands(RtspListeners& listeners, DeviceDirectory& directory)
        : listeners_(listeners), directory_(directory) {}

    // The answer text to one command text, whatever the text holds.
    std::string answer(const std::string& command);
    // {"statusCode":code,"statusString":text}, the answer to what cannot be understood.
    static std::string refusal(int code, const std::string& text);

private:
    Json::Value putMediaPort(const Json::Value& params);
    Json::Value refreshDevicePort(const Json::Value& params);
    Json::Value getMediaPortStatus(const Json::Value& params);
    Json::Value listMediaPorts() const;
    // Opens one device's listener; false, with the reason logged, when it does not listen.
    bool openForDevice(const std::string& deviceIndex, uint16_t port);
    Json::Value listenStatus(const std::string& deviceIndex, uint16_t port) const;

    RtspListeners& listeners_;
    DeviceDirectory& directory_;
};

}  // namespace mediad
