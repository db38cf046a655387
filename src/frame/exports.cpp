// The exported entry points: each forwards to one member of the single manager, unchanged.
#include "ZQTELMIMgrBus.h"
#include "frame/CInstanceMgr.h"

using ZQTELMIMgrBus::CInstanceMgr;

namespace {
CInstanceMgr* manager() { return CSingleton<CInstanceMgr>::Instance(); }
}  // namespace

extern "C" {

ZQ_TELMI_API int ZQ_TELMIMgrBus_Start() { return manager()->start(); }

ZQ_TELMI_API int ZQ_TELMIMgrBus_Stop() { return manager()->stop(); }

ZQ_TELMI_API int ZQ_TELMIMgrBus_AddUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results,
                                        const std::vector<ZQTELMIMgrBus::tagTELMIUserInput>& users) {
    return manager()->addUser(results, users);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_QuickAddUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results,
                                             const std::string& password) {
    return manager()->quickAddUser(results, password);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_DelUser(std::vector<int>& results, const std::vector<std::string>& userIndexes) {
    return manager()->delUser(results, userIndexes);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_ModUser(const std::string& userIndex, const ZQTELMIMgrBus::tagTELMIUserInput& user) {
    return manager()->modUser(userIndex, user);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_QueryUserList(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>& users,
                                              ZQTELMIMgrBus::tagTelmiQueryRsp& rsp,
                                              const ZQTELMIMgrBus::tagTelmiQueryReq& req) {
    return manager()->queryUserList(users, rsp, req);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_GetProtocolEnable() { return manager()->getProtocolEnable(); }

ZQ_TELMI_API int ZQ_TELMIMgrBus_SetProtocolEnable(int enable) { return manager()->setProtocolEnable(enable); }

ZQ_TELMI_API int ZQ_TELMIMgrBus_CheckDigest(ZQTELMIMgrBus::tagTelmiAuthRsp& rsp, const std::string& method,
                                            const ZQTELMIMgrBus::tagTELMIAuthReq& req, ZQConfigMgr::TELMIMode mode) {
    return manager()->checkDigest(rsp, method, req, mode);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_BindPort(std::vector<ZQTELMIMgrBus::tagBindPortRet>& rets,
                                         const std::vector<std::string>& deviceIds) {
    return manager()->bindPort(rets, deviceIds);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_UnbindPort(std::vector<int>& results, const std::vector<std::string>& portIndexes) {
    return manager()->unbindPort(results, portIndexes);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_BindRetry(ZQTELMIMgrBus::tagBindPortRet& ret, const std::string& portIndex) {
    return manager()->bindRetry(ret, portIndex);
}

ZQ_TELMI_API int ZQ_TELMIMgrBus_QueryTELMIPortList(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports,
                                                   ZQTELMIMgrBus::tagTelmiQueryRsp& rsp,
                                                   const ZQTELMIMgrBus::tagTelmiQueryReq& req) {
    return manager()->queryPortList(ports, rsp, req);
}

}  // extern "C"
