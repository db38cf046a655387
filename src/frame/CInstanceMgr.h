#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "ZQConfigMgr.h"
#include "ZQDeviceMgr.h"
#include "ZQTELMIMgrBusRecords.h"
#include "frame/CSingleton.h"
#include "kmt.h"

namespace Json {
class Value;
}

namespace ZQTELMIMgrBus {

// The manager: every operation of the library is one of its members. It keeps no state but the
// lock that serialises port binding; users, bindings and devices live in the device store and
// settings in the configuration store. Members are grouped by the subsystem that defines them.
class CInstanceMgr : public CSingleton<CInstanceMgr> {
public:
    CInstanceMgr();

    // TELMI switch (src/frame)
    int getProtocolEnable();
    int setProtocolEnable(int enable);

    // User accounts (src/users)
    int addUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results, const std::vector<tagTELMIUserInput>& users);
    int quickAddUser(std::vector<ZQDeviceMgr::tagAddUserRet>& results, const std::string& password);
    int getQuickUserInfo(std::vector<ZQDeviceMgr::tagTELMIUser>& users, const std::string& password);
    int checkBoundDevice(std::string& deviceIndex, const std::string& deviceID, ZQConfigMgr::TELMIMode mode);
    int checkPassword(std::string& digestHA1, const std::string& password, const std::string& userName);
    int checkNameChar(const char* name, int len);
    int delUser(std::vector<int>& results, const std::vector<std::string>& userIndexes);
    int modUser(const std::string& userIndex, const tagTELMIUserInput& user);
    int queryUserList(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>& users, tagTelmiQueryRsp& rsp,
                      const tagTelmiQueryReq& req);
    int matchKeyWord(const std::shared_ptr<ZQDeviceMgr::CTELMIUser>& user, const char* keyWord);
    static int sortByUserAddtime(std::shared_ptr<ZQDeviceMgr::CTELMIUser> a,
                                 std::shared_ptr<ZQDeviceMgr::CTELMIUser> b);

    // Digest authentication (src/auth)
    int checkDigest(tagTelmiAuthRsp& rsp, const std::string& method, const tagTELMIAuthReq& req,
                    ZQConfigMgr::TELMIMode mode);
    int buildUnauthorHead(std::string& head, int stale);

    // Port binding and the port list (src/ports)
    int bindPort(std::vector<tagBindPortRet>& rets, const std::vector<std::string>& deviceIds);
    int unbindPort(std::vector<int>& results, const std::vector<std::string>& portIndexes);
    int bindRetry(tagBindPortRet& ret, const std::string& portIndex);
    int checkNeedRstpPort(int& need, const std::string& devIndex);
    int queryPortList(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports, tagTelmiQueryRsp& rsp,
                      const tagTelmiQueryReq& req);
    int matchKeyWord(const std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const char* keyWord);
    static int sortByPortAddtime(std::shared_ptr<ZQDeviceMgr::CTELMIPort> a,
                                 std::shared_ptr<ZQDeviceMgr::CTELMIPort> b);

    // Listener control (src/listeners)
    int start();
    int stop();
    static void devChangeCB(ZQDeviceMgr::tagNotifyType type, void* deviceIndex, const void* context);
    int notifyAllTELMIPort();
    int updateNgixTELMIPortStatus(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports);
    int getNginxPidList(std::list<int>& pids);
    int notifyMediaTELMIPort(std::vector<MediaPortInfo> infos);
    int retryMediaTELMIPort(int& listening, const std::string& devIndex, unsigned short rtspPort);
    int updateMediaTELMIPortStatus(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports);

private:
    // Sends one command to the media module and parses its answer, logging as `caller` (src/listeners).
    bool exchangeMedia(Json::Value& answer, const Json::Value& command, const char* caller);

    KMT_Mutex telmiMutex;
};

}  // namespace ZQTELMIMgrBus
