// Channels other than 0 share the card that channel 0's process programs: they have nothing to bring up.

#include "engine/KovaShfeMdApiImpl.h"
#include "log/CommonLog.h"

int32_t CKovaShfeMdApiImpl::_ChechAndKovaSubDmaUp() {
    if (m_u50ConfigInfo.channel_id != MANAGER_CHANNEL) {
        return 0;
    }
    KOVA_LOG(LOG_ERROR, "channel0 bring-up is not part of this version");
    return -1;
}

int32_t CKovaShfeMdApiImpl::_KovaSubDmaUp(uint32_t) {
    if (m_u50ConfigInfo.channel_id != MANAGER_CHANNEL) {
        return 0;
    }
    KOVA_LOG(LOG_ERROR, "channel0 bring-up is not part of this version");
    return -1;
}
