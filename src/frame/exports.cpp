// The exported entry points: each forwards to one member of the single manager, unchanged.
#include "ZQTELMIMgrBus.h"
#include "frame/CInstanceMgr.h"

using ZQTELMIMgrBus::CInstanceMgr;

namespace {
CInstanceMgr* manager() { return CSingleton<CInstanceMgr>::Instance(); }
}  // namespace

extern "C" {

ZQ_TELMI_API int ZQ_TELMIMgrBus_GetProtocolEnable() { return manager()->getProtocolEnable(); }

ZQ_TELMI_API int ZQ_TELMIMgrBus_SetProtocolEnable(int enable) { return manager()->setProtocolEnable(enable); }

}  // extern "C"
