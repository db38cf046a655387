#include "frame/CInstanceMgr.h"
#include "frame/FieldText.h"
#include "frame/ResultCode.h"
#include "users/UserInputRules.h"

namespace ZQTELMIMgrBus {

// Unlike modUser, an index shorter than a store key still goes to the store, which answers for it.
int CInstanceMgr::delUser(std::vector<int>& results, const std::vector<std::string>& userIndexes) {
    for (const std::string& userIndex : userIndexes) {
        results.push_back(isNonEmptyWithin(userIndex, kStoreIndexLength) ? ZQ_DeviceMgr_DelTELMIUser(userIndex)
                                                                         : kBadArgument);
    }
    return kOk;
}

}  // namespace ZQTELMIMgrBus
