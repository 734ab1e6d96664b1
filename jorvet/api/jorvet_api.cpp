// The C functions: each passes its arguments to one operation. No exception leaves them.
#include "jorvet/api/jorvet_api.h"

#include "jorvet/api/com_info_export.h"
#include "jorvet/api/unless_thrown.h"
#include "jorvet/com/usb_cyp_com.h"
#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/core/jorvet.h"

namespace {

using jorvet::api::unless_thrown;

template <typename Call>
unsigned int status_of(CJorvet* instance, Call call) {
    if (instance == nullptr)
        return JV_ERR_NO_COM;
    return unless_thrown<unsigned int>(JV_ERR_NO_RESOURCES, [&] { return call(*instance); });
}

} // namespace

CJorvet* JV_CALL JVGetInstance(unsigned int kind) {
    return unless_thrown<CJorvet*>(nullptr, [=] { return new CJorvet(kind); });
}

void JV_CALL JVCloseInstance(CJorvet* instance) {
    // First, because a destructor cannot let the end of a cancelled thread through.
    if (status_of(instance, [](CJorvet& jorvet) { return jorvet.disconnect(); }) != JV_ERR_IN_CALLBACK)
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
    *count = unless_thrown<unsigned char>(0, [=]() mutable { // when memory runs out nothing is listed
        const auto bridges = CUsbFtd2xxCom::get_all_com_info_list();
        const auto controllers = CUsbCypCom::get_all_com_info_list();
        for (const auto& record : bridges)
            jorvet::api::export_com_info(*record, list++);
        for (const auto& record : controllers)
            jorvet::api::export_com_info(*record, list++);
        return static_cast<unsigned char>(bridges.size() + controllers.size());
    });
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
