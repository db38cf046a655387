#include <ZQTELMIMgrBus.h>

int hostEnableTELMI() {
    std::vector<ZQTELMIMgrBus::tagBindPortRet> rets;
    ZQ_TELMIMgrBus_BindPort(rets, {});
    return ZQ_TELMIMgrBus_SetProtocolEnable(1);
}
