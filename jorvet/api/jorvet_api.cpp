// The C functions: each passes its arguments to one operation. No exception leaves them.
#include "jorvet/api/jorvet_api.h"

#if defined(__GLIBC__)
#include <cxxabi.h>
#endif

#include "jorvet/api/com_info_export.h"
#include "jorvet/com/usb_cyp_com.h"
#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/core/jorvet.h"

namespace {

#if defined(__GLIBC__)
using forced_unwind = abi::__forced_unwind; // what ends a cancelled thread: it must go on
#else
struct forced_unwind {};
#endif

// Runs `call` on the instance; without an instance `otherwise`, and `on_throw` when resources ran out.
template <typename Result, typename Call>
Result guarded(CJorvet* instance, Result otherwise, Result on_throw, Call call) {
    if (instance == nullptr)
        return otherwise;
    try {
        return call(*instance);
    } catch (const forced_unwind&) {
        throw;
    } catch (...) {
        return on_throw;
    }
}

template <typename Call>
unsigned int status_of(CJorvet* instance, Call call) {
    return guarded<unsigned int>(instance, JV_ERR_NO_COM, JV_ERR_NO_RESOURCES, call);
}

} // namespace

CJorvet* JV_CALL JVGetInstance(unsigned int kind) {
    try {
        return new CJorvet(kind);
    } catch (const forced_unwind&) {
        throw;
    } catch (...) {
        return nullptr;
    }
}

void JV_CALL JVCloseInstance(CJorvet* instance) {
    // First, because a destructor cannot let the end of a cancelled thread through.
    status_of(instance, [](CJorvet& jorvet) { return jorvet.disconnect(); });
    delete instance;
}

unsigned int JV_CALL JVConnect(CJorvet* instance, unsigned char index) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.connect(index); });
}

unsigned int JV_CALL JVDisconnect(CJorvet* instance) {
    return status_of(instance, [](CJorvet& jorvet) { return jorvet.disconnect(); });
}

bool JV_CALL JVIsOpen(CJorvet* instance) {
    return instance != nullptr && instance->is_open();
}

void* JV_CALL JVGetComHandle(CJorvet* instance) {
    if (instance == nullptr || !instance->get_com())
        return nullptr;
    return instance->get_com()->get_com_handle();
}

void JV_CALL JVGetComInfo(CJorvet* instance, COM_INFO* info) {
    if (instance == nullptr || !instance->get_com())
        return;
    jorvet::api::export_com_info(*instance->get_com()->get_com_info(), info);
}

void JV_CALL JVGetComInfoList(COM_INFO* list, unsigned char* count) {
    *count = 0;
    try {
        const auto bridges = CUsbFtd2xxCom::get_all_com_info_list();
        const auto controllers = CUsbCypCom::get_all_com_info_list();
        for (const auto& record : bridges)
            jorvet::api::export_com_info(*record, list++);
        for (const auto& record : controllers)
            jorvet::api::export_com_info(*record, list++);
        *count = static_cast<unsigned char>(bridges.size() + controllers.size());
    } catch (const forced_unwind&) {
        throw;
    } catch (...) { // out of memory: nothing is listed
    }
}

unsigned int JV_CALL JVReadMemoryRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned char p3,
                                    bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_read_memory(p1, p2, p3, with_crc); });
}

unsigned int JV_CALL JVReadByIdRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned char p3,
                                  unsigned short* out_length, unsigned char* out_data, bool with_crc) {
    return status_of(instance,
                     [=](CJorvet& jorvet) { return jorvet.rq_read_by_id(p1, p2, p3, out_length, out_data, with_crc); });
}

unsigned int JV_CALL JVReadSnRq(CJorvet* instance, unsigned char p1, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_read_sn(p1, with_crc); });
}

unsigned int JV_CALL JVReadLastSwRq(CJorvet* instance, unsigned char p1, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_read_last_sw(p1, with_crc); });
}

unsigned int JV_CALL JVReadErrorRq(CJorvet* instance, unsigned char p1, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_read_error(p1, with_crc); });
}

unsigned int JV_CALL JVWriteMemoryRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned short length,
                                     unsigned char* data, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_write_memory(p1, p2, length, data, with_crc); });
}

unsigned int JV_CALL JVWriteByIdRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned short length,
                                   unsigned char* data, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_write_by_id(p1, p2, length, data, with_crc); });
}

unsigned int JV_CALL JVExecByIdRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned short length,
                                  unsigned char* data, unsigned short* out_length, unsigned char* out_data,
                                  bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) {
        return jorvet.rq_exec_by_id(p1, p2, length, data, out_length, out_data, with_crc);
    });
}

unsigned int JV_CALL JVResetRq(CJorvet* instance, unsigned char p1, unsigned char p2, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_reset(p1, p2, with_crc); });
}

unsigned int JV_CALL JVSetModeRq(CJorvet* instance, unsigned char p1, unsigned char p2, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_set_mode(p1, p2, with_crc); });
}

unsigned int JV_CALL JVGetModeRq(CJorvet* instance, unsigned char p1, bool with_crc) {
    return status_of(instance, [=](CJorvet& jorvet) { return jorvet.rq_get_mode(p1, with_crc); });
}
