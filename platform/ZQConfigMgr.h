// Configuration store of the gateway (libZQGatewayCfg).
//
// Requirements on an implementation:
// - every function and object is safe for concurrent use;
// - ZQ_ConfigMgr_GetTELMICfg never returns null; the other two may, and null means failure;
// - values are read afresh by every call: a change is seen by the next one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace ZQConfigMgr {

enum TELMIMode : int32_t {
    userMode = 1,
    portMode = 2,
};

struct tagInternalCommunicationInfo {
    uint16_t commPort;
    uint16_t timeout;  // time limit of a synchronous media command, in milliseconds
};

class CTELMICfg {
public:
    virtual ~CTELMICfg() = default;
    virtual int getTELMIParam() = 0;
    // 0 when stored, non-zero when the value could not be persisted.
    virtual int setTELMIParam(int value) = 0;
};

class CUserCfg {
public:
    virtual ~CUserCfg() = default;
    virtual std::string getRealm() = 0;
    // Puts the HA1 of the named gateway user into ha1; 0 when the user exists.
    virtual int getDigestHA1(std::string& ha1, const char* user) = 0;
};

class CPrivateCfg {
public:
    virtual ~CPrivateCfg() = default;
    virtual int getInternalCommParams(tagInternalCommunicationInfo& info) = 0;
};

}  // namespace ZQConfigMgr

std::shared_ptr<ZQConfigMgr::CTELMICfg> ZQ_ConfigMgr_GetTELMICfg();
std::shared_ptr<ZQConfigMgr::CUserCfg> ZQ_ConfigMgr_GetUserCfg();
std::shared_ptr<ZQConfigMgr::CPrivateCfg> ZQ_ConfigMgr_GetPrivateCfg();
