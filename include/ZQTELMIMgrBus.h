// TELMI manager bus: the one header a gateway host includes.
//
// Every function returns an int result code. The codes have no symbolic names; their values
// are part of the interface:
//
//      0  success; for batch calls the call itself, with one code per item in the result list
//      1  bad argument; or "done" for Start and Stop
//      3  the configuration store refused the new TELMI switch value
//      7  the device is not, or no longer, in the device store
//      9  a gateway service (configuration, media module, nginx) failed or answered badly
//    256  the password strength could not be rated
//    257  the password is too weak
//    260  the port is not listening, or is held by another program
//    261  nginx could not add the listening port
//    262  nginx could not be restarted
//    273  no free HTTP or RTSP port was available
//    274  not found or not supported (user, binding, mode, device category, quick-user devices)
//   1026  the device is already bound
//   1028  the Digest check failed: wrong credentials, stale nonce, or requester locked out
//   1040  no port binding has that port index
//
// Codes of the device store, device bus and configuration store are passed on unchanged.
// Batch calls append to the caller's result list and never clear it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ZQConfigMgr.h"
#include "ZQDeviceMgr.h"
#include "ZQTELMIMgrBusRecords.h"

#define ZQ_TELMI_API __attribute__((visibility("default")))

extern "C" {

ZQ_TELMI_API int ZQ_TELMIMgrBus_Start();
ZQ_TELMI_API int ZQ_TELMIMgrBus_Stop();
ZQ_TELMI_API int ZQ_TELMIMgrBus_AddUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results,
                                        const std::vector<ZQTELMIMgrBus::tagTELMIUserInput>& users);
ZQ_TELMI_API int ZQ_TELMIMgrBus_QuickAddUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results,
                                             const std::string& password);
ZQ_TELMI_API int ZQ_TELMIMgrBus_DelUser(std::vector<int>& results, const std::vector<std::string>& userIndexes);
ZQ_TELMI_API int ZQ_TELMIMgrBus_ModUser(const std::string& userIndex, const ZQTELMIMgrBus::tagTELMIUserInput& user);
ZQ_TELMI_API int ZQ_TELMIMgrBus_QueryUserList(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>& users,
                                              ZQTELMIMgrBus::tagTelmiQueryRsp& rsp,
                                              const ZQTELMIMgrBus::tagTelmiQueryReq& req);
ZQ_TELMI_API int ZQ_TELMIMgrBus_GetProtocolEnable();
ZQ_TELMI_API int ZQ_TELMIMgrBus_SetProtocolEnable(int enable);
ZQ_TELMI_API int ZQ_TELMIMgrBus_CheckDigest(ZQTELMIMgrBus::tagTelmiAuthRsp& rsp, const std::string& method,
                                            const ZQTELMIMgrBus::tagTELMIAuthReq& req, ZQConfigMgr::TELMIMode mode);
ZQ_TELMI_API int ZQ_TELMIMgrBus_BindPort(std::vector<ZQTELMIMgrBus::tagBindPortRet>& rets,
                                         const std::vector<std::string>& deviceIds);
ZQ_TELMI_API int ZQ_TELMIMgrBus_UnbindPort(std::vector<int>& results, const std::vector<std::string>& portIndexes);
ZQ_TELMI_API int ZQ_TELMIMgrBus_BindRetry(ZQTELMIMgrBus::tagBindPortRet& ret, const std::string& portIndex);
ZQ_TELMI_API int ZQ_TELMIMgrBus_QueryTELMIPortList(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports,
                                                   ZQTELMIMgrBus::tagTelmiQueryRsp& rsp,
                                                   const ZQTELMIMgrBus::tagTelmiQueryReq& req);

}  // extern "C"
