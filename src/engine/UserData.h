/**
 * What the engine hands to a poll of the card and gets back in the handler.
 */
#ifndef KOVA_ENGINE_USER_DATA_H
#define KOVA_ENGINE_USER_DATA_H

#include <cstdint>

/** How quotes reach the application; chosen by the start. */
enum EUserDataType : int32_t {
    CALL_BACK = 0,  /**< the callback gets the record where it lies */
    BUFF_FETCH = 1, /**< the record is copied into the caller's buffer */
};

/** Context of the receive handler. One per engine, for its whole life. */
struct U50UserData {
    EUserDataType userDataType = CALL_BACK;
    void* lpMdApi = nullptr;  /**< the CKovaShfeMdApiImpl that polls; set by the start */
    void* lpMdData = nullptr; /**< the KovaShfeMdType to fill; not owned, set before each poll of fetch mode */
    bool isQuote = false;     /**< the last poll delivered a quote */
};

#endif  // KOVA_ENGINE_USER_DATA_H
