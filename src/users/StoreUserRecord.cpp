#include "users/StoreUserRecord.h"

#include <cstring>

#include "frame/FieldText.h"

namespace ZQTELMIMgrBus {

ZQDeviceMgr::tagTELMIUser makeStoreUserRecord(const std::string& userName, const std::string& digestHA1,
                                              const std::string& deviceIndex) {
    ZQDeviceMgr::tagTELMIUser record;
    std::memset(&record, 0, sizeof(record));
    copyField(record.userName, userName, sizeof(record.userName) - 1);
    copyField(record.digestHA1, digestHA1, sizeof(record.digestHA1) - 1);
    copyField(record.deviceIndex, deviceIndex, sizeof(record.deviceIndex) - 1);
    return record;
}

}  // namespace ZQTELMIMgrBus
