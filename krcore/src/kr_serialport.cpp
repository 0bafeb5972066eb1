// kr_serialport.cpp — the serial port and its event thread, over the platform layer.
#include "kr_serialport.h"

#include <string.h>

#include <algorithm>

#include "kr_alloc.h"
#include "kr_locale.h"
#include "kr_platform.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_serialport"

// On the event thread the port's operations answer statuses only: no report, no user error.
#define KRI_FAIL_QUIET(quiet, st) ((quiet) ? (st) : KRI_FAIL(st))

namespace {

const unsigned int kKnownEvents = KR_SERIAL_EV_RXCHAR | KR_SERIAL_EV_TXEMPTY | KR_SERIAL_EV_CTS |
                                  KR_SERIAL_EV_DSR | KR_SERIAL_EV_CD | KR_SERIAL_EV_BREAK |
                                  KR_SERIAL_EV_ERR | KR_SERIAL_EV_RING | KR_SERIAL_EV_CLOSED;
const unsigned int kDefaultPollMs = 20;

bool validConfig(const KR_SerialConfig& config) {
    return config.baudRate > 0 && config.dataBits >= 5 && config.dataBits <= 8 &&
           config.parity >= KR_SERIAL_PARITY_NONE && config.parity <= KR_SERIAL_PARITY_SPACE &&
           config.stopBits >= KR_SERIAL_STOPBITS_ONE && config.stopBits <= KR_SERIAL_STOPBITS_TWO &&
           config.flow >= KR_SERIAL_FLOW_NONE && config.flow <= KR_SERIAL_FLOW_DTRDSR;
}

krPlatform::SerialSettings settingsOf(const KR_SerialConfig& config) {
    return krPlatform::SerialSettings{
            config.baudRate, config.dataBits, static_cast<unsigned char>(config.parity),
            static_cast<unsigned char>(config.stopBits), static_cast<unsigned char>(config.flow)};
}

// out := text in the other width on the heap; null when it does not convert. False when memory
// runs out.
template <class To, class From>
bool convertName(const From* text, To*& out) {
    out = nullptr;
    size_t length = krInternal::localeLength<To>(text);
    if (length == krInternal::kNoLocaleForm) return true;
    out = krInternal::localeCopy<To>(text, length);
    return out != nullptr;
}

// Both widths of a port name; the one not given is made by the locale's conversion (null when
// the name does not convert). wide: the platform opens the wide name.
struct PortName {
    char* narrow = nullptr;
    wchar_t* wide = nullptr;
    bool ownsNarrow = false;
    bool ownsWide = false;

    ~PortName() {
        if (ownsNarrow) krInternal::freeBlock(narrow);
        if (ownsWide) krInternal::freeBlock(wide);
    }

    bool set(const char* name) {
        narrow = const_cast<char*>(name);
        if (!KR_useUnicodeSystemFunctions) return true;
        ownsWide = true;
        return convertName(name, wide);
    }

    bool set(const wchar_t* name) {
        wide = const_cast<wchar_t*>(name);
        ownsNarrow = true;
        return convertName(name, narrow);
    }
};

// Reports a failure of the platform layer under what (the operation) and answers its status.
KR_RET_STATUS platformFailure(int error, const char* what, int line, bool quiet) {
    KR_RET_STATUS status = error == krPlatform::kSerialNoMemory      ? KR_RET_ERR_MEM
                           : error == krPlatform::kSerialUnsupported ? KR_RET_ERR_NSUP
                           : error == krPlatform::kSerialNotSerial   ? KR_RET_ERR_NSUP
                                                                     : KR_RET_ERR_FILE;
    if (quiet) return status;
    if (status == KR_RET_ERR_FILE) {
        KR_reportErrorMsg(KRI_UNIT, static_cast<unsigned int>(line), what, "system error %d\n",
                          error);
    } else if (error == krPlatform::kSerialNotSerial) {
        KR_reportErrorMsg(KRI_UNIT, static_cast<unsigned int>(line), what, "%s",
                          "not a serial device\n");
    }
    return krInternal::failAt(status, KRI_UNIT, static_cast<unsigned int>(line));
}

template <class Str, class Char>
Char* portText(char* name);

template <>
char* portText<KR_String, char>(char* name) {
    return name;
}

template <>
wchar_t* portText<KR_StringW, wchar_t>(char* name) {
    wchar_t* wide = nullptr;
    convertName(name, wide);
    krInternal::freeBlock(name);
    return wide;
}

template <class Str, class Char>
KR_RET_STATUS listPorts(KR_Array<Str>& names) {
    KR_setUserError(0);
    if (!names.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    char** found = nullptr;
    unsigned int count = 0;
    int error = krPlatform::serialListPorts(found, count);
    KR_RET_STATUS status = KR_RET_TRUE;
    if (error != 0) {
        status = platformFailure(error, "KR_serialListPorts", __LINE__, false);
    } else {
        std::sort(found, found + count,
                  [](const char* a, const char* b) { return strcmp(a, b) < 0; });
        status = names.reallocate(count);
    }
    // Each found text is either adopted by a string or freed here.
    unsigned int next = 0;
    for (; !KRI_FAILED(status) && next < count; ++next) {
        Char* text = portText<Str, Char>(found[next]);
        if (text == nullptr)
            status = KRI_FAIL(KR_RET_ERR_MEM);
        else
            names[next].assignPtr(text);
    }
    if (KRI_FAILED(status)) {
        for (; next < count; ++next)
            krInternal::freeBlock(found[next]);
        if (names.objIsEnabled()) names.delAll();
    }
    krInternal::freeBlock(found);
    return status;
}

}  // namespace

int krPlatform::serialAddName(char**& names,
                              unsigned int& count,
                              unsigned int& capacity,
                              const char* device) {
    if (count == capacity) {
        unsigned int grown = capacity == 0 ? 16 : capacity * 2;
        void* block = krInternal::reallocBlock(names, grown * sizeof(char*));
        if (block == nullptr) return krPlatform::kSerialNoMemory;
        names = static_cast<char**>(block);
        capacity = grown;
    }
    names[count] = krInternal::dupText(device);
    if (names[count] == nullptr) return krPlatform::kSerialNoMemory;
    ++count;
    return 0;
}

// --- KR_SerialPort ---

KR_SerialPort::KR_SerialPort() : KR_KorvaneClass() {
    initDataMembers();
}

KR_SerialPort::KR_SerialPort(const KR_SerialPort& other) : KR_KorvaneClass(other) {
    initDataMembers();
    KRI_FAIL(KR_RET_ERR_NSUP);
}

KR_SerialPort::~KR_SerialPort() {
    cleanupDataMembers();
}

KR_SerialPort& KR_SerialPort::operator=(const KR_SerialPort& other) {
    KR_setUserError(0);
    if (&other != this) KRI_FAIL(KR_RET_ERR_NSUP);
    return *this;
}

KR_RET_STATUS KR_SerialPort::open(const char* name, const KR_SerialConfig& config) {
    return openNamed(name, config);
}

KR_RET_STATUS KR_SerialPort::open(const wchar_t* name, const KR_SerialConfig& config) {
    return openNamed(name, config);
}

template <class Char>
KR_RET_STATUS KR_SerialPort::openNamed(const Char* name, const KR_SerialConfig& config) {
    if (krPlatform::serialOnEventThread(sys_)) return KR_RET_ERR_CALL;
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (name == nullptr || name[0] == Char(0)) return KRI_FAIL(KR_RET_ERR_ARG);
    if (!validConfig(config)) return KRI_FAIL(KR_RET_ERR_ARG);
    close();
    PortName names;
    if (!names.set(name)) return KRI_FAIL(KR_RET_ERR_MEM);
    // The kept name is copied first, so that nothing is left to undo when memory runs out.
    char* kept = names.narrow;
    if (names.ownsNarrow) {
        names.ownsNarrow = false;
    } else {
        kept = krInternal::dupText(names.narrow);
        if (kept == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    }
    krPlatform::SerialPort* port = nullptr;
    int error = krPlatform::serialOpen(names.narrow, names.wide, names.wide != nullptr, port);
    if (error == 0) {
        error = krPlatform::serialApply(port, settingsOf(config));
        if (error != 0) krPlatform::serialClose(port);
    }
    if (error != 0) {
        krInternal::freeBlock(kept);
        return platformFailure(error, "KR_SerialPort: open", __LINE__, false);
    }
    sys_ = port;
    config_ = config;
    name_.assignPtr(kept);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::close() {
    if (krPlatform::serialOnEventThread(sys_)) return KR_RET_ERR_CALL;
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KR_RET_FALSE;
    stopRequested_.store(1, std::memory_order_release);
    krPlatform::serialWakeEvents(sys_);
    krPlatform::serialClose(sys_);
    sys_ = nullptr;
    running_.store(0, std::memory_order_release);
    stopRequested_.store(0, std::memory_order_release);
    name_ = static_cast<const char*>(nullptr);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::setConfig(const KR_SerialConfig& config) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!validConfig(config)) return KRI_FAIL(KR_RET_ERR_ARG);
    if (sys_ == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    int error = krPlatform::serialApply(sys_, settingsOf(config));
    if (error != 0) return platformFailure(error, "KR_SerialPort: setConfig", __LINE__, false);
    config_ = config;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::getConfig(KR_SerialConfig& config) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    config = config_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::read(void* buffer,
                                  unsigned int size,
                                  unsigned int& got,
                                  unsigned int timeoutMs) {
    got = 0;
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (buffer == nullptr && size > 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (sys_ == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    // The event thread owns the receiving side while it reads.
    if (running_.load(std::memory_order_acquire) && (eventMask_ & KR_SERIAL_EV_RXCHAR) != 0) {
        return KRI_FAIL(KR_RET_ERR_CALL);
    }
    int error = krPlatform::serialRead(sys_, buffer, size, got, timeoutMs);
    if (error != 0) return platformFailure(error, "KR_SerialPort: read", __LINE__, false);
    return got == size ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_SerialPort::write(const void* buffer,
                                   unsigned int size,
                                   unsigned int& written,
                                   unsigned int timeoutMs) {
    written = 0;
    bool quiet = krPlatform::serialOnEventThread(sys_);
    if (!quiet) KR_setUserError(0);
    if (!initialised_) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_POBJ);
    if (buffer == nullptr && size > 0) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_ARG);
    if (sys_ == nullptr) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_CALL);
    int error = krPlatform::serialWrite(sys_, buffer, size, written, timeoutMs);
    if (error != 0) return platformFailure(error, "KR_SerialPort: write", __LINE__, quiet);
    return written == size ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_SerialPort::bytesAvailable(unsigned int& count) {
    count = 0;
    bool quiet = krPlatform::serialOnEventThread(sys_);
    if (!quiet) KR_setUserError(0);
    if (!initialised_) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_CALL);
    int error = krPlatform::serialQueued(sys_, count);
    if (error != 0) return platformFailure(error, "KR_SerialPort: bytesAvailable", __LINE__, quiet);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::drain() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    int error = krPlatform::serialDrain(sys_);
    if (error != 0) return platformFailure(error, "KR_SerialPort: drain", __LINE__, false);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::purge(unsigned char rx, unsigned char tx) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    int error = krPlatform::serialPurge(sys_, rx != 0, tx != 0);
    if (error != 0) return platformFailure(error, "KR_SerialPort: purge", __LINE__, false);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::setDTR(unsigned char on) {
    bool quiet = krPlatform::serialOnEventThread(sys_);
    if (!quiet) KR_setUserError(0);
    if (!initialised_) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_CALL);
    int error = krPlatform::serialSetLine(sys_, 0, on != 0);
    if (error != 0) return platformFailure(error, "KR_SerialPort: setDTR", __LINE__, quiet);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::setRTS(unsigned char on) {
    bool quiet = krPlatform::serialOnEventThread(sys_);
    if (!quiet) KR_setUserError(0);
    if (!initialised_) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_CALL);
    int error = krPlatform::serialSetLine(sys_, 1, on != 0);
    if (error != 0) return platformFailure(error, "KR_SerialPort: setRTS", __LINE__, quiet);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::getModemLines(unsigned int& lines) {
    lines = 0;
    bool quiet = krPlatform::serialOnEventThread(sys_);
    if (!quiet) KR_setUserError(0);
    if (!initialised_) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL_QUIET(quiet, KR_RET_ERR_CALL);
    int error = krPlatform::serialModemLines(sys_, lines);
    if (error != 0) return platformFailure(error, "KR_SerialPort: getModemLines", __LINE__, quiet);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::sendBreak(unsigned int ms) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    int error = krPlatform::serialBreak(sys_, ms);
    if (error != 0) return platformFailure(error, "KR_SerialPort: sendBreak", __LINE__, false);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::startEvents(unsigned int mask, KR_SERIAL_EVENT_FN fn, void* user) {
    if (krPlatform::serialOnEventThread(sys_)) return KR_RET_ERR_CALL;
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (fn == nullptr || (mask & kKnownEvents) == 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (sys_ == nullptr || running_.load(std::memory_order_acquire)) {
        return KRI_FAIL(KR_RET_ERR_CALL);
    }
    // The thread reads these only after it starts, and the owner changes them only after
    // joining it: they need no atomics.
    eventMask_ = mask & kKnownEvents;
    callback_ = fn;
    user_ = user;
    lastEventError_ = 0;
    stopRequested_.store(0, std::memory_order_release);
    running_.store(1, std::memory_order_release);
    krPlatform::SerialEventSink sink = {onEvent, onThreadEnd, this, &stopRequested_};
    int error = krPlatform::serialStartEvents(sys_, eventMask_, pollMs_, sink);
    if (error != 0) {
        running_.store(0, std::memory_order_release);
        return platformFailure(error, "KR_SerialPort: startEvents", __LINE__, false);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::stopEvents() {
    if (krPlatform::serialOnEventThread(sys_)) {
        // A thread cannot join itself: ask it to end once the callback returns.
        stopRequested_.store(1, std::memory_order_release);
        krPlatform::serialWakeEvents(sys_);
        return KR_RET_TRUE;
    }
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (sys_ == nullptr) return KR_RET_FALSE;
    return joinEvents();
}

KR_RET_STATUS KR_SerialPort::joinEvents() {
    stopRequested_.store(1, std::memory_order_release);
    krPlatform::serialWakeEvents(sys_);
    bool joined = krPlatform::serialJoinEvents(sys_);
    running_.store(0, std::memory_order_release);
    stopRequested_.store(0, std::memory_order_release);
    return joined ? KR_RET_TRUE : KR_RET_FALSE;
}

unsigned char KR_SerialPort::eventsRunning() const {
    return running_.load(std::memory_order_acquire);
}

int KR_SerialPort::getLastEventError() const {
    if (running_.load(std::memory_order_acquire)) return 0;
    return lastEventError_;
}

void KR_SerialPort::onEvent(void* context, const KR_SerialEvent& event) {
    KR_SerialPort* port = static_cast<KR_SerialPort*>(context);
    port->callback_(port, &event, port->user_);
}

void KR_SerialPort::onThreadEnd(void* context, int osError) {
    KR_SerialPort* port = static_cast<KR_SerialPort*>(context);
    port->lastEventError_ = osError;
    port->running_.store(0, std::memory_order_release);
}

KR_RET_STATUS KR_SerialPort::initDataMembers() {
    initialised_ = 1;
    sys_ = nullptr;
    config_ = KR_SerialConfig();
    eventMask_ = 0;
    callback_ = nullptr;
    user_ = nullptr;
    running_.store(0, std::memory_order_relaxed);
    stopRequested_.store(0, std::memory_order_relaxed);
    pollMs_ = kDefaultPollMs;
    lastEventError_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_SerialPort::cleanupDataMembers() {
    if (krPlatform::serialOnEventThread(sys_)) {
        // Deleted from its own callback: the thread keeps the device, closes it when the
        // callback returns and never touches this object again.
        krPlatform::serialOrphan(sys_);
        sys_ = nullptr;
    } else if (sys_ != nullptr) {
        close();
    }
    initialised_ = 0;
    return KR_RET_TRUE;
}

// --- port listing ---

KR_RET_STATUS KR_serialListPorts(KR_Array<KR_String>& names) {
    return listPorts<KR_String, char>(names);
}

KR_RET_STATUS KR_serialListPortsW(KR_Array<KR_StringW>& names) {
    return listPorts<KR_StringW, wchar_t>(names);
}
