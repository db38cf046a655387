// Reference gateway: the gateway home and its settings (libZQGatewayCfg). Only the reference
// gateway's own programs and tests use this header; the library sees the platform headers only.
//
// The gateway home is the one directory a gateway instance owns: gateway.json (settings and
// gateway users), devices.db (device store), nonce.key (Digest nonce secret), nginx/ (private
// nginx prefix), run/ (sockets), log/. It is $ZQ_GATEWAY_HOME, or $HOME/.zqgateway when that is
// unset (/var/lib/zqgateway when HOME is unset too); resolved once per process, created on
// first use with mode 0700, as are run/ and log/ (an existing one with any group or other bits
// is tightened to 0700 by its owner).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZQGateway {

// The Digest realm of the management API, never the TELMI realm: its challenges and HA1s are
// its own.
constexpr const char* kManagementRealm = "ZQ gateway management";
// The settings file, in the home.
constexpr const char* kSettingsFile = "gateway.json";

struct tagGatewaySettings {
    std::string realm = "TELMI";  // Digest realm; changing it invalidates every stored HA1
    uint16_t commPort = 0;        // internal communication port, kept for the media module
    uint16_t mediaTimeoutMs = 3000;
    uint16_t httpPortFirst = 20000, httpPortLast = 20999;  // ports handed to devices, inclusive
    uint16_t rtspPortFirst = 30000, rtspPortLast = 30999;
    int nonceLifetimeSec = 300;  // a nonce older than this is stale
    int lockPeriodSec = 1800;    // lock-out after the 7th wrong answer
    // How often zqgatewayd compares nginx's and the media daemon's listeners with the stored
    // bindings; 0: only when a daemon was started again or an administrator asks.
    int listenerCheckSec = 2;
    int logLevel = 3;                         // tvlog drops lines below this level
    std::string logFile = "log/gateway.log";  // empty: stderr; relative: under the home
    uint16_t managementPort = 8600;           // the management API, served by nginx on loopback
    uint16_t telmiUserPort = 8700;            // the user-mode TELMI port, served by nginx; 0: not offered
    // The unprivileged user the services (and so nginx) run as when started by root; created
    // when missing. Letters, digits, '_' and '-', at most 32 characters, not "root".
    std::string serviceUser = "zqgateway";
    // Networks ("127.0.0.0/8", "fe80::/64") whose addresses devices may have although the device
    // store refuses them otherwise: loopback, link-local, multicast, unspecified, broadcast.
    std::vector<std::string> allowedDeviceNetworks;
};

// Result codes of these functions, in the configuration store's own range.
enum tagConfigCode : int {
    configOk = 0,
    configBadArgument = 62001,
    configUnreadable = 62002,  // the settings file exists but is not valid JSON; never overwritten
    configWriteFailed = 62003,
    configNoHome = 62004,
    configNoUser = 62005,  // no such gateway or management user
};

}  // namespace ZQGateway

// The home directory, created when missing; empty when it cannot be created.
std::string ZQ_Gateway_HomeDir();
// A path inside the home ("run/media.sock" -> "<home>/run/media.sock"); absolute paths unchanged.
std::string ZQ_Gateway_HomePath(const std::string& relative);

// Two credentials, kept apart so that an answer captured on a device port (plain HTTP, seen by
// the device LAN) can never administer the gateway:
// - the gateway user "admin" of the TELMI realm, which port mode asks for (the library reads its
//   HA1 through CUserCfg); there is no built-in password: until one is set, port mode accepts no
//   one. ZQ_Gateway_Init sets it.
// - the management API's administrator "admin", of the realm kManagementRealm.
// Passwords are stored as HA1 = MD5(user:realm:password).
int ZQ_Gateway_Init(const char* adminPassword);
// Sets (or replaces) a gateway user's password in the TELMI realm.
int ZQ_Gateway_SetUserPassword(const char* user, const char* password);
// Sets (or replaces) a management API user's password; its HA1, or configNoUser.
int ZQ_Gateway_SetManagerPassword(const char* user, const char* password);
int ZQ_Gateway_GetManagerHA1(const std::string& user, std::string& ha1);

int ZQ_Gateway_GetSettings(ZQGateway::tagGatewaySettings& settings);
// While held on the calling thread, gateway.json is looked at once and every later read on that
// thread sees the same content, until released (or written by this thread). A service holds it
// for one request: each request still sees the file's latest content, in one consistent view,
// without a stat for each of the many settings one check reads.
void ZQ_Gateway_HoldSettings(bool hold);
int ZQ_Gateway_SetSettings(const ZQGateway::tagGatewaySettings& settings);
// Every way the settings file at path breaks the settings' schema (docs/configuration.md), one
// line each, starting with the key concerned; empty when the file is valid or absent.
std::vector<std::string> ZQ_Gateway_CheckSettingsFile(const std::string& path);

// Gives a file or directory that a process running as root has just created in the home (fd
// open on it) to the home's owner, the user the gateway's services run as, so that they can
// still use it. Nothing happens for other processes or for paths outside the home.
void ZQ_Gateway_GiveToHomeOwner(int fd, const std::string& path);

// Replaces the file's content at once (temporary file, fsync, rename): readers see the old or
// the new text, never a mix; a file in the home goes to the home's owner. Files rebuilt from
// other data after a crash may skip the fsync (durable false): it costs milliseconds on a busy
// disk. 0 on success, errno otherwise.
int ZQ_Gateway_WriteFileAtomically(const std::string& path, const std::string& content, unsigned mode = 0600,
                                   bool durable = true);
