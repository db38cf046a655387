// telmictl: the gateway administrator's command-line client of the management API.
#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "Commands.h"
#include "ExitStatus.h"
#include "ManagementClient.h"
#include "SecretInput.h"

using namespace telmictl;

namespace {

// A port retry may wait most of a minute for nginx; a batch restarts nginx once.
constexpr time_t kReadSeconds = 120;

constexpr const char* kUserPassword = "TELMI user password";
constexpr const char* kAdminPassword = "new gateway admin password";
constexpr const char* kPortPassword = "new port-mode admin password";

struct Invocation {
    std::string gateway = "http://127.0.0.1:8600";
    std::string adminPasswordFile;
    bool json = false;
    Paging paging;
    std::vector<std::string> items;  // the indexes or device IDs of a batch
    std::vector<std::string> named;  // the names or device IDs that stand for a batch's indexes
    std::string userName;            // the user a command is about, by name
    std::vector<std::string> users;  // NAME=DEVICEID
    std::string index;               // the one record a command is about
    UserInput user;
    DeviceInput device;
    LockoutSelector lockout;
    std::string newPasswordOf;  // whose new password the command reads after the admin's; empty: none
    bool repair = false;
    std::function<void(Session&, const std::string& newPassword)> run;
};

const CLI::Validator kUserOnDevice(
    [](std::string& item) {
        const size_t equals = item.find('=');
        return equals == 0 || equals == std::string::npos || equals + 1 == item.size()
                   ? "expected NAME=DEVICEID, got \"" + item + "\""
                   : std::string();
    },
    "NAME=DEVICEID");

std::vector<UserInput> splitUsers(const std::vector<std::string>& items) {
    std::vector<UserInput> users;
    for (const auto& item : items) {
        const size_t equals = item.find('=');
        users.push_back({item.substr(0, equals), item.substr(equals + 1)});
    }
    return users;
}

// A command names its records one way or the other, not both, not neither.
void requireOneOf(const CLI::Option* one, const CLI::Option* other) {
    if ((one->count() == 0) == (other->count() == 0)) {
        throw CLI::ValidationError(one->get_name() + ", " + other->get_name(), "give exactly one of the two");
    }
}

void addPaging(CLI::App* list, Paging& paging) {
    list->add_option("--start", paging.start, "Skip this many records (0 to 500)")->capture_default_str();
    list->add_option("--max", paging.max, "Show at most this many records (0 to 500)")->capture_default_str();
    list->add_option("--keyword", paging.keyword, "Only records whose names or IDs contain this text");
}

void defineTelmi(CLI::App& app, Invocation& inv) {
    CLI::App* telmi =
        app.add_subcommand("telmi", "TELMI access through the gateway: switch it on or off")->require_subcommand(1);
    telmi->add_subcommand("status", "Show whether TELMI access is on")->callback([&inv] {
        inv.run = [](Session& s, const std::string&) { telmiStatus(s); };
    });
    telmi->add_subcommand("on", "Switch TELMI access on")->callback([&inv] {
        inv.run = [](Session& s, const std::string&) { telmiSwitch(s, 1); };
    });
    telmi->add_subcommand("off", "Switch TELMI access off (both front ends answer 403)")->callback([&inv] {
        inv.run = [](Session& s, const std::string&) { telmiSwitch(s, 0); };
    });
}

void defineUser(CLI::App& app, Invocation& inv) {
    CLI::App* user = app.add_subcommand("user", "TELMI users: one account per device")->require_subcommand(1);
    CLI::App* list = user->add_subcommand("list", "List TELMI users");
    addPaging(list, inv.paging);
    list->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { userList(s, inv.paging); }; });

    CLI::App* add = user->add_subcommand("add", "Add TELMI users, all with one password read from standard input");
    add->add_option("users", inv.users, "Accounts to add")->required()->check(kUserOnDevice);
    add->callback([&inv] {
        inv.newPasswordOf = kUserPassword;
        inv.run = [&inv](Session& s, const std::string& password) { userAdd(s, splitUsers(inv.users), password); };
    });

    user->add_subcommand("quick-add",
                         "Add a user named after its access ID for every device without one; one password for all")
        ->callback([&inv] {
            inv.newPasswordOf = kUserPassword;
            inv.run = [](Session& s, const std::string& password) { userQuickAdd(s, password); };
        });

    CLI::App* mod = user->add_subcommand("mod", "Change a user's name, device and password");
    CLI::Option* modIndex = mod->add_option("userIndex", inv.index, "The user's index");
    CLI::Option* modUser = mod->add_option("--user", inv.userName, "The user's name, instead of its index");
    CLI::Option* newName = mod->add_option("--name", inv.user.userName,
                                           "The user's name, new or unchanged (default with --user: unchanged)");
    CLI::Option* newDevice = mod->add_option("--device", inv.user.deviceID,
                                             "The device's ID, new or unchanged (default with --user: unchanged)");
    mod->callback([&inv, modIndex, modUser, newName, newDevice] {
        requireOneOf(modIndex, modUser);
        if (modIndex->count() != 0 && (newName->count() == 0 || newDevice->count() == 0)) {
            throw CLI::ValidationError("user mod", "a user given by index needs --name and --device");
        }
        inv.newPasswordOf = kUserPassword;
        inv.run = [&inv](Session& s, const std::string& password) {
            inv.userName.empty() ? userModify(s, inv.index, inv.user, password)
                                 : userModifyNamed(s, inv.userName, inv.user, password);
        };
    });

    CLI::App* passwd = user->add_subcommand("passwd", "Give a TELMI user a new password; name and device stay");
    passwd->add_option("name", inv.userName, "The user's name")->required();
    passwd->callback([&inv] {
        inv.newPasswordOf = kUserPassword;
        inv.run = [&inv](Session& s, const std::string& password) { userModifyNamed(s, inv.userName, {}, password); };
    });

    CLI::App* del = user->add_subcommand("del", "Delete TELMI users");
    CLI::Option* delIndexes = del->add_option("userIndexes", inv.items, "Indexes of the users");
    CLI::Option* delNames = del->add_option("--name", inv.named, "Names of the users, instead of their indexes");
    del->callback([&inv, delIndexes, delNames] {
        requireOneOf(delIndexes, delNames);
        inv.run = [&inv](Session& s, const std::string&) {
            inv.named.empty() ? userDelete(s, inv.items) : userDeleteNamed(s, inv.named);
        };
    });
}

void definePort(CLI::App& app, Invocation& inv) {
    CLI::App* port =
        app.add_subcommand("port", "Port bindings: a gateway port pair per Tarn5 device")->require_subcommand(1);
    CLI::App* list = port->add_subcommand("list", "List port bindings with their listening states");
    addPaging(list, inv.paging);
    list->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { portList(s, inv.paging); }; });

    CLI::App* bind = port->add_subcommand("bind", "Bind an HTTP and an RTSP port to each device");
    bind->add_option("deviceIDs", inv.items, "IDs of the devices")->required();
    bind->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { portBind(s, inv.items); }; });

    CLI::App* unbind = port->add_subcommand("unbind", "Release port bindings");
    CLI::Option* unbindIndexes = unbind->add_option("portIndexes", inv.items, "Indexes of the bindings");
    CLI::Option* unbindDevices =
        unbind->add_option("--device", inv.named, "IDs of the bound devices, instead of the bindings' indexes");
    unbind->callback([&inv, unbindIndexes, unbindDevices] {
        requireOneOf(unbindIndexes, unbindDevices);
        inv.run = [&inv](Session& s, const std::string&) {
            inv.named.empty() ? portUnbind(s, inv.items) : portUnbindDevices(s, inv.named);
        };
    });

    port->add_subcommand("passwd",
                         "Give the TELMI \"admin\" that port-mode clients sign in as a new password "
                         "(typed twice); the management API's admin keeps its own")
        ->callback([&inv] {
            inv.newPasswordOf = kPortPassword;
            inv.run = [](Session& s, const std::string& password) { changeCredential(s, "port-mode", password); };
        });

    CLI::App* retry = port->add_subcommand("retry", "Bring a binding's listeners up again (may take about 50 s)");
    retry->add_option("portIndex", inv.index, "Index of the binding")->required();
    retry->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { portRetry(s, inv.index); }; });
}

void defineDevice(CLI::App& app, Invocation& inv) {
    CLI::App* device = app.add_subcommand("device", "Devices attached to the gateway")->require_subcommand(1);
    CLI::App* list = device->add_subcommand("list", "List devices, with whether each answers on its TELMI address now");
    addPaging(list, inv.paging);
    list->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { deviceList(s, inv.paging); }; });

    CLI::App* add = device->add_subcommand("add", "Attach a device");
    add->add_option("--protocol", inv.device.protocol, "Access protocol")
        ->required()
        ->transform(CLI::CheckedTransformer(std::map<std::string, int> {{"tarn", 2}, {"tarn5", 4}}));
    add->add_option("--id", inv.device.deviceID, "The device's ID (access ID)")->required();
    add->add_option("--name", inv.device.name, "A name for people");
    add->add_option("--category", inv.device.category, "Device category")
        ->capture_default_str()
        ->check(CLI::IsMember({1, 2}));
    add->add_option("--telmi-address", inv.device.telmiAddress, "The device's TELMI address, http://HOST:PORT");
    add->add_option("--rtsp-address", inv.device.rtspAddress, "The device's RTSP address, rtsp://HOST:PORT");
    add->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { deviceAdd(s, inv.device); }; });

    CLI::App* remove = device->add_subcommand("remove", "Detach a device; its TELMI user and binding go with it");
    remove->add_option("deviceIndex", inv.index, "Index of the device")->required();
    remove->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { deviceRemove(s, inv.index); }; });
}

void defineConfig(CLI::App& app, Invocation& inv) {
    CLI::App* config = app.add_subcommand("config", "The gateway's settings file")->require_subcommand(1);
    config
        ->add_subcommand("check", "List every problem of gateway.json as the gateway would find them at its next start")
        ->callback([&inv] { inv.run = [](Session& s, const std::string&) { configCheck(s); }; });
}

void defineLockout(CLI::App& app, Invocation& inv) {
    CLI::App* lockout = app.add_subcommand("lockout", "TELMI requesters locked out after 7 wrong Digest answers")
                            ->require_subcommand(1);
    lockout->add_subcommand("list", "List failure counts and lock-outs with the time left")->callback([&inv] {
        inv.run = [](Session& s, const std::string&) { lockoutList(s); };
    });
    CLI::App* clear = lockout->add_subcommand("clear", "Lift lock-outs and forget failure counts before their time");
    clear->add_option("--user", inv.lockout.userName, "Those of this TELMI user");
    clear->add_option("--port", inv.lockout.httpPort, "Those of this gateway HTTP port (port mode)")
        ->check(CLI::Range(1, 65535));
    clear->add_option("--requester", inv.lockout.requester, "Those of this requester (address or listed key)");
    clear->add_flag("--all", inv.lockout.all, "Every one");
    clear->callback([&inv] {
        const LockoutSelector& selector = inv.lockout;
        const bool narrowed = !selector.userName.empty() || selector.httpPort != 0 || !selector.requester.empty();
        if (narrowed == selector.all) {
            throw CLI::ValidationError("lockout clear", "name a --user, --port or --requester, or give --all alone");
        }
        inv.run = [&inv](Session& s, const std::string&) { lockoutClear(s, inv.lockout); };
    });
}

void defineAdmin(CLI::App& app, Invocation& inv) {
    CLI::App* admin = app.add_subcommand("admin", "The management API's administrator")->require_subcommand(1);
    admin
        ->add_subcommand("passwd",
                         "Give the management API's admin a new password (typed twice); port mode "
                         "keeps its own")
        ->callback([&inv] {
            inv.newPasswordOf = kAdminPassword;
            inv.run = [](Session& s, const std::string& password) { changeCredential(s, "management", password); };
        });
}

void defineDoctor(CLI::App& app, Invocation& inv) {
    CLI::App* command = app.add_subcommand(
        "doctor",
        "Compare what nginx and the media daemon listen on with the stored bindings; exit 1 while they differ");
    command->add_flag("--repair", inv.repair, "Bring the listeners in step first, as the gateway does by itself");
    command->callback([&inv] { inv.run = [&inv](Session& s, const std::string&) { doctor(s, inv.repair); }; });
}

}  // namespace

int main(int argc, char** argv) {
    Invocation inv;
    CLI::App app {
        "Command-line client of the gateway's management API. Passwords are read from a prompt or "
        "standard input (the admin password first, then a TELMI user's), never from the command line."};
    app.add_option("--gateway", inv.gateway, "URL of the management API")
        ->capture_default_str()
        ->envname("ZQ_GATEWAY_URL");
    app.add_option("--admin-password-file", inv.adminPasswordFile,
                   "File whose first line is the gateway admin's password (default: prompt or standard input)");
    app.add_flag("--json", inv.json, "Print the API's JSON answers instead of tables and sentences");
    app.require_subcommand(1);
    defineTelmi(app, inv);
    defineUser(app, inv);
    definePort(app, inv);
    defineDevice(app, inv);
    defineLockout(app, inv);
    defineConfig(app, inv);
    defineAdmin(app, inv);
    defineDoctor(app, inv);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kExitDone : kExitUsage;
    }

    std::string adminPassword, newPassword, error;
    if (!gwapi::checkManagementUrl(inv.gateway, error)) {
        std::fprintf(stderr, "telmictl: %s\n", error.c_str());
        return kExitUsage;
    }
    if (!gwapi::readSecret("gateway admin password", inv.adminPasswordFile, adminPassword, error)) {
        std::fprintf(stderr, "telmictl: %s\n", error.c_str());
        return kExitAdmin;
    }
    if (!inv.newPasswordOf.empty() && !gwapi::readNewSecret(inv.newPasswordOf, newPassword, error)) {
        std::fprintf(stderr, "telmictl: %s\n", error.c_str());
        return kExitUsage;
    }
    gwapi::ManagementClient api(inv.gateway, adminPassword, kReadSeconds);
    Session session(api, inv.gateway, inv.json);
    try {
        inv.run(session, newPassword);
    } catch (const Json::Exception& e) {
        session.fail(kExitUnreachable, std::string("the gateway's answer has an unexpected form: ") + e.what());
    }
    return session.exitStatus();
}
