#include "ResultMeaning.h"

#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"

namespace gwapi {

ResultMeaning meaningOf(int code) {
    using namespace ZQGateway;
    switch (code) {
        case 0: return {200, "done"};
        case 1: return {400, "bad argument: a text empty or too long, a reserved or ill-formed user name, a paging "
                             "value outside 0 to 500, or an unknown index"};
        case 3: return {500, "the configuration store refused the new TELMI switch value"};
        case 7: return {404, "the device is not, or no longer, attached to the gateway"};
        case 9: return {502, "a gateway service (configuration, media module or nginx) failed or answered badly"};
        case 256: return {422, "the password strength cannot be rated (empty, or a character outside printable ASCII)"};
        case 257: return {422, "the password is too weak"};
        case 260: return {409, "the port is not listening, or another program holds it"};
        case 261: return {502, "nginx could not add the listening port"};
        case 262: return {502, "nginx could not be restarted"};
        case 273: return {503, "no free HTTP or RTSP port is left in the gateway's ranges"};
        case 274: return {404, "not found or not supported: no such user or binding, an unsupported device "
                               "category, or no device eligible for a quick user"};
        case 1026: return {409, "the device is already bound"};
        case 1028: return {401, "the Digest check failed"};
        case 1040: return {404, "no port binding has that index"};
        case storeBadArgument: return {400, "the device store refused an empty or over-long value"};
        case storeNotFound: return {404, "the device store holds nothing with that index"};
        case storeNoDevice: return {404, "the device store does not hold that device"};
        case storeDeviceHasUser: return {409, "the device already has a TELMI user"};
        case storeDeviceHasPort: return {409, "the device already has a port binding"};
        case storeNameTaken: return {409, "another TELMI user has that name"};
        case storePortTaken: return {409, "another binding holds that port"};
        case storeNoFreePort: return {503, "no free port is left in the gateway's ranges"};
        case storeDatabase: return {500, "the device store's database failed"};
        case storeDeviceIdTaken: return {409, "another device has that access ID"};
        case storeAddressRefused: return {400, "the device address leads where the gateway must not relay: a name, a "
                                               "loopback, link-local, multicast or unspecified address, the gateway "
                                               "itself or one of its ports"};
        case configBadArgument: return {400, "the configuration store refused the value"};
        case configUnreadable: return {500, "the gateway settings file is not valid JSON"};
        case configWriteFailed: return {500, "the gateway settings cannot be written"};
        case configNoHome: return {500, "the gateway home cannot be created"};
        default: return {500, "the gateway failed with an unknown result code"};
    }
}

}  // namespace gwapi
