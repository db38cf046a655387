#include "HomeInit.h"

#include <openssl/rand.h>
#include <unistd.h>

#include <cctype>

#include "ZQBase.h"
#include "ZQConfigMgr.h"
#include "ZQGatewayHome.h"

namespace gatewayd {
namespace {

constexpr size_t kPasswordLength = 16;
// The library's codes for a password its rating refuses.
constexpr int kUnratedPassword = 256;
constexpr int kWeakPassword = 257;

bool hasEveryClass(const std::string& text) {
    bool lower = false, upper = false, digit = false;
    for (unsigned char c : text) {
        lower = lower || std::islower(c);
        upper = upper || std::isupper(c);
        digit = digit || std::isdigit(c);
    }
    return lower && upper && digit;
}

// Rejection sampling keeps every character equally likely.
bool generatePassword(std::string& password) {
    static const std::string kAlphabet = "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
    const unsigned limit = 256 - 256 % kAlphabet.size();
    do {
        password.clear();
        while (password.size() < kPasswordLength) {
            unsigned char byte = 0;
            if (RAND_bytes(&byte, 1) != 1) {
                return false;
            }
            if (byte < limit) {
                password += kAlphabet[byte % kAlphabet.size()];
            }
        }
    } while (!hasEveryClass(password));
    return true;
}

}  // namespace

const char* generatedPasswordFile(Credential credential) {
    return credential == Credential::management ? "admin-password" : "port-admin-password";
}

InitOutcome initialiseCredential(Credential credential, const std::string& given, std::string& error) {
    const auto userCfg = ZQ_ConfigMgr_GetUserCfg();
    if (userCfg == nullptr) {
        error = "the gateway home cannot be created";
        return InitOutcome::failed;
    }
    std::string ha1;
    if ((credential == Credential::management ? ZQ_Gateway_GetManagerHA1("admin", ha1)
                                              : userCfg->getDigestHA1(ha1, "admin")) == 0) {
        return InitOutcome::alreadyInitialised;
    }
    std::string password = given;
    if (password.empty()) {
        if (!generatePassword(password)) {
            error = "no random bytes for a password";
            return InitOutcome::failed;
        }
        const std::string path = ZQ_Gateway_HomePath(generatedPasswordFile(credential));
        if (const int code = ZQ_Gateway_WriteFileAtomically(path, password + "\n", 0600); code != 0) {
            error = "the generated password cannot be written to " + path + " (errno " + std::to_string(code) + ")";
            return InitOutcome::failed;
        }
    }
    const int code = credential == Credential::management ? ZQ_Gateway_SetManagerPassword("admin", password.c_str())
                                                          : ZQ_Gateway_Init(password.c_str());
    if (code != 0) {
        error = "the password cannot be stored (code " + std::to_string(code) + ")";
        return InitOutcome::failed;
    }
    return InitOutcome::initialised;
}

int replaceCredential(Credential credential, const std::string& password) {
    const int level = ZQ_BASE_GetPasswrodLevel(password.c_str(), "admin");
    if (level == -1) {
        return kUnratedPassword;
    }
    if (level == 0) {
        return kWeakPassword;
    }
    const int code = credential == Credential::management ? ZQ_Gateway_SetManagerPassword("admin", password.c_str())
                                                          : ZQ_Gateway_Init(password.c_str());
    if (code == 0) {
        ::unlink(ZQ_Gateway_HomePath(generatedPasswordFile(credential)).c_str());
    }
    return code;
}

const char* clientsOf(Credential credential) {
    return credential == Credential::management
               ? "every client of the management API (telmictl, its --admin-password-file files, scripts using "
                 "curl --digest -u admin) must now use the new password; TELMI clients are not affected"
               : "every TELMI client of the device ports (port mode, user \"admin\") must now use the new password; "
                 "TELMI users and the management API are not affected";
}

}  // namespace gatewayd
