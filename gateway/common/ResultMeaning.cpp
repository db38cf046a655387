#include "ResultMeaning.h"

#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"

namespace gwapi {
namespace {

// The sentences a job needs instead of the general ones; null where the general one says it.
const char* jobMessage(int code, Job job) {
    const bool accountJob = job == Job::addUser || job == Job::modifyUser;
    switch (code) {
        case 1:
            if (accountJob) {
                return "bad argument: the user name must be 1 to 32 printable ASCII characters without / \\ : * ? ' "
                       "\" < > | %, and not \"admin\"; the password 1 to 16 characters; the device ID 1 to 31 "
                       "characters; a modified user must exist";
            }
            return job == Job::quickAddUser ? "bad argument: the password must be 1 to 16 characters" : nullptr;
        case 7:
            if (job == Job::bindPort) {
                return "no Tarn5 device with that access ID and both a TELMI and an RTSP address is attached: port "
                       "binding takes Tarn5 devices only (a Tarn device gets a TELMI user instead; see device list)";
            }
            return accountJob ? "no Tarn or Tarn5 device with that access ID and a TELMI address is attached "
                                "(see device list)"
                              : nullptr;
        case 256:
            return accountJob || job == Job::changePassword
                       ? "the password cannot be rated: it must be printable ASCII characters only"
                       : nullptr;
        case 257:
            if (accountJob) {
                return "the password is too weak: use at least 8 printable ASCII characters (at most 16) of at "
                       "least two kinds (lower-case letters, upper-case letters, digits, other characters), not "
                       "containing the user name in any letter case";
            }
            return job == Job::changePassword ? "the password is too weak: use at least 8 printable ASCII "
                                                "characters of at least two kinds (lower-case letters, upper-case "
                                                "letters, digits, other characters), not containing \"admin\""
                                              : nullptr;
        case 274:
            return job == Job::quickAddUser
                       ? "no eligible device: every Tarn or Tarn5 device with a TELMI address has a TELMI user "
                         "already, or the password was refused for each (it may not contain a device's access ID)"
                       : nullptr;
        case 1026:
            if (job == Job::bindPort) {
                return "the device is already bound to a port pair: one binding per device (see port list)";
            }
            return accountJob ? "the device already has a TELMI user: one account per device; modify or delete "
                                "that user instead"
                              : nullptr;
        default: return nullptr;
    }
}

ResultMeaning generalMeaning(int code) {
    using namespace ZQGateway;
    switch (code) {
        case 0: return {200, "done"};
        case 1:
            return {400,
                    "bad argument: a text empty or too long, a reserved or ill-formed user name, a paging "
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
        case 274:
            return {404,
                    "not found or not supported: no such user or binding, an unsupported device "
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
        case storeAddressRefused:
            return {400,
                    "the device address leads where the gateway must not relay: a name, a "
                    "loopback, link-local, multicast or unspecified address, the gateway "
                    "itself or one of its ports"};
        case configBadArgument: return {400, "the configuration store refused the value"};
        case configUnreadable: return {500, "the gateway settings file is not valid JSON"};
        case configWriteFailed: return {500, "the gateway settings cannot be written"};
        case configNoHome: return {500, "the gateway home cannot be created"};
        default: return {500, "the gateway failed with an unknown result code"};
    }
}

}  // namespace

ResultMeaning meaningOf(int code, Job job) {
    ResultMeaning meaning = generalMeaning(code);
    if (const char* message = jobMessage(code, job)) {
        meaning.message = message;
    }
    return meaning;
}

}  // namespace gwapi
