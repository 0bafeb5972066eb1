// kr_platform_serial_win.cpp — serial ports on Windows: the comm API with overlapped I/O.
#include <string.h>
#include <windows.h>

#include "kr_alloc.h"
#include "kr_platform.h"

struct krPlatform::SerialPort {
    HANDLE handle;
    DCB savedState;  // the device's settings before open, restored by close
    COMMTIMEOUTS savedTimeouts;
    // The owner's reads and writes (and the callback's writes) use these; the event thread has
    // its own.
    OVERLAPPED readIo;
    OVERLAPPED writeIo;
    // The event thread.
    bool threadStarted;
    HANDLE thread;
    HANDLE stopEvent;
    unsigned char* buffer;
    unsigned int mask;
    unsigned int pollMs;
    SerialEventSink sink;
    // Set and read only on the event thread: the owner gave the port up from the callback.
    bool orphaned;
};

namespace {

using krPlatform::SerialPort;

const DWORD kEventBufferSize = 4096;
// The longest single wait of a read without deadline; the read simply waits again.
const DWORD kInfiniteSliceMs = 60000;

thread_local const SerialPort* currentEventPort = nullptr;

int lastError() {
    return static_cast<int>(GetLastError());
}

bool setReadTimeouts(HANDLE handle, DWORD waitMs) {
    COMMTIMEOUTS t;
    memset(&t, 0, sizeof t);
    // {MAXDWORD, 0, 0}: return at once with what is queued. {0, 0, n}: wait until the buffer is
    // full or n ms have passed, and return what came. (Wine ignores the documented special case
    // {MAXDWORD, MAXDWORD, n}, and waits on it without end.)
    t.ReadIntervalTimeout = waitMs == 0 ? MAXDWORD : 0;
    t.ReadTotalTimeoutConstant = waitMs;
    return SetCommTimeouts(handle, &t) != 0;
}

// One overlapped read into buffer; count := the bytes that came.
int readOnce(HANDLE handle, OVERLAPPED& io, void* buffer, DWORD size, DWORD& count) {
    count = 0;
    ResetEvent(io.hEvent);
    if (!ReadFile(handle, buffer, size, nullptr, &io) && GetLastError() != ERROR_IO_PENDING) {
        return lastError();
    }
    if (!GetOverlappedResult(handle, &io, &count, TRUE)) return lastError();
    return 0;
}

void closeDevice(SerialPort* port) {
    SetCommState(port->handle, &port->savedState);
    SetCommTimeouts(port->handle, &port->savedTimeouts);
    CloseHandle(port->handle);
    CloseHandle(port->readIo.hEvent);
    CloseHandle(port->writeIo.hEvent);
    krInternal::freeBlock(port);
}

void releaseThreadState(SerialPort* port) {
    if (port->stopEvent != nullptr) CloseHandle(port->stopEvent);
    port->stopEvent = nullptr;
    krInternal::freeBlock(port->buffer);
    port->buffer = nullptr;
    port->threadStarted = false;
}

// The device is gone: the driver refuses what it did before.
bool deviceGone(int error) {
    return error == ERROR_BAD_COMMAND || error == ERROR_ACCESS_DENIED ||
           error == ERROR_DEVICE_REMOVED || error == ERROR_DEV_NOT_EXIST ||
           error == ERROR_INVALID_HANDLE;
}

unsigned int errorBits(DWORD errors) {
    return errors & (CE_RXOVER | CE_OVERRUN | CE_RXPARITY | CE_FRAME | CE_BREAK);
}

// The thread's loop; answers the system error that ended it, 0 for a stop.
int runEvents(SerialPort* port, HANDLE waitEvent) {
    const unsigned int mask = port->mask;
    const DWORD commMask = mask & (EV_RXCHAR | EV_TXEMPTY | EV_CTS | EV_DSR | EV_RLSD | EV_BREAK |
                                   EV_ERR | EV_RING);
    if (!SetCommMask(port->handle, commMask)) return lastError();
    OVERLAPPED io;
    memset(&io, 0, sizeof io);
    io.hEvent = waitEvent;
    auto deliver = [port](const KR_SerialEvent& event) {
        port->sink.event(port->sink.context, event);
        return !port->orphaned;
    };
    for (;;) {
        if (port->sink.stopRequested->load(std::memory_order_acquire)) return 0;
        DWORD events = 0;
        ResetEvent(waitEvent);
        bool aborted = false;
        if (!WaitCommEvent(port->handle, &events, &io)) {
            int error = lastError();
            if (error != ERROR_IO_PENDING) {
                if (deviceGone(error)) return error;
                aborted = true;
            } else {
                HANDLE handles[2] = {waitEvent, port->stopEvent};
                DWORD which = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
                if (which != WAIT_OBJECT_0) {
                    // This thread issued the wait, so CancelIo reaches it; the OVERLAPPED must
                    // stay alive until the cancelled wait has finished.
                    CancelIo(port->handle);
                    DWORD ignored;
                    GetOverlappedResult(port->handle, &io, &ignored, TRUE);
                    return which == WAIT_OBJECT_0 + 1 ? 0 : lastError();
                }
                DWORD ignored;
                if (!GetOverlappedResult(port->handle, &io, &ignored, FALSE)) {
                    error = lastError();
                    if (deviceGone(error)) return error;
                    aborted = true;
                }
            }
        }
        // A wait that ends with no event was aborted (SetCommMask on Windows; Wine on a
        // pseudo-terminal): look at the queue all the same, so that nothing is lost.
        if (events == 0) aborted = true;
        DWORD errors = 0;
        COMSTAT status;
        memset(&status, 0, sizeof status);
        if (!ClearCommError(port->handle, &errors, &status)) {
            int error = lastError();
            return error != 0 ? error : ERROR_DEVICE_REMOVED;
        }
        bool delivered = false;
        if ((mask & KR_SERIAL_EV_RXCHAR) != 0 && status.cbInQue > 0) {
            if (!setReadTimeouts(port->handle, 0)) return lastError();
            DWORD want = status.cbInQue < kEventBufferSize ? status.cbInQue : kEventBufferSize;
            DWORD count = 0;
            int error = readOnce(port->handle, io, port->buffer, want, count);
            if (error != 0) return error;
            if (count > 0) {
                KR_SerialEvent event = {KR_SERIAL_EV_RXCHAR, port->buffer, count, 0, 0, 0};
                if (!deliver(event)) return 0;
                delivered = true;
            }
        }
        KR_SerialEvent event = {0, nullptr, 0, 0, errorBits(errors), 0};
        event.events = events & mask & ~static_cast<unsigned int>(KR_SERIAL_EV_RXCHAR);
        if (event.errors != 0 && (mask & KR_SERIAL_EV_ERR) != 0) event.events |= KR_SERIAL_EV_ERR;
        if (event.events != 0) {
            DWORD lines = 0;
            if (GetCommModemStatus(port->handle, &lines)) event.modemLines = lines;
            if (!deliver(event)) return 0;
            delivered = true;
        }
        // Never spin on waits that keep aborting: pause one poll period, or until stopped.
        if (aborted && !delivered) WaitForSingleObject(port->stopEvent, port->pollMs);
    }
}

DWORD WINAPI eventThread(LPVOID argument) {
    SerialPort* port = static_cast<SerialPort*>(argument);
    currentEventPort = port;
    HANDLE waitEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    int osError = waitEvent == nullptr ? lastError() : runEvents(port, waitEvent);
    if (waitEvent != nullptr) CloseHandle(waitEvent);
    if (osError != 0 && !port->orphaned &&
        !port->sink.stopRequested->load(std::memory_order_acquire)) {
        KR_SerialEvent event = {KR_SERIAL_EV_CLOSED, nullptr, 0, 0, 0, osError};
        port->sink.event(port->sink.context, event);
    }
    if (port->orphaned) {
        // Nobody waits for this thread: it frees what the owner gave up and leaves.
        CloseHandle(port->thread);
        releaseThreadState(port);
        closeDevice(port);
    } else {
        port->sink.ended(port->sink.context, osError);
    }
    currentEventPort = nullptr;
    return 0;
}

template <class Char>
HANDLE openDevice(const Char* name);

template <>
HANDLE openDevice<char>(const char* name) {
    return CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

template <>
HANDLE openDevice<wchar_t>(const wchar_t* name) {
    return CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

// name, with the device namespace prefix "\\.\" when it has no backslash (COM10 and above
// open only so).
template <class Char>
HANDLE openPrefixed(const Char* name, int& error) {
    size_t length = 0;
    bool plain = true;
    while (name[length] != 0)
        plain = plain && name[length++] != Char('\\');
    HANDLE handle = INVALID_HANDLE_VALUE;
    if (!plain) {
        handle = openDevice(name);
    } else {
        Char* full = static_cast<Char*>(krInternal::allocZeroed(length + 5, sizeof(Char)));
        if (full == nullptr) {
            error = krPlatform::kSerialNoMemory;
            return INVALID_HANDLE_VALUE;
        }
        full[0] = full[1] = full[3] = Char('\\');
        full[2] = Char('.');
        for (size_t i = 0; i < length; ++i)
            full[4 + i] = name[i];
        handle = openDevice(full);
        krInternal::freeBlock(full);
    }
    error = handle == INVALID_HANDLE_VALUE ? lastError() : 0;
    return handle;
}

}  // namespace

int krPlatform::serialOpen(const char* name, const wchar_t* nameW, bool wide, SerialPort*& port) {
    port = nullptr;
    if (wide ? nameW == nullptr : name == nullptr) return ERROR_FILE_NOT_FOUND;
    SerialPort* p = static_cast<SerialPort*>(krInternal::allocZeroed(1, sizeof(SerialPort)));
    if (p == nullptr) return kSerialNoMemory;
    int error = 0;
    HANDLE handle = wide ? openPrefixed(nameW, error) : openPrefixed(name, error);
    if (error == 0) {
        p->savedState.DCBlength = sizeof(DCB);
        if (!GetCommState(handle, &p->savedState) || !GetCommTimeouts(handle, &p->savedTimeouts)) {
            error = kSerialNotSerial;
        }
    }
    if (error == 0) {
        p->readIo.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        p->writeIo.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        if (p->readIo.hEvent == nullptr || p->writeIo.hEvent == nullptr) error = lastError();
    }
    if (error == 0) {
        // Writes keep no comm timeout: their deadline is the wait on the OVERLAPPED.
        COMMTIMEOUTS t;
        memset(&t, 0, sizeof t);
        t.ReadIntervalTimeout = MAXDWORD;
        if (!SetCommTimeouts(handle, &t)) error = lastError();
    }
    if (error != 0) {
        if (p->readIo.hEvent != nullptr) CloseHandle(p->readIo.hEvent);
        if (p->writeIo.hEvent != nullptr) CloseHandle(p->writeIo.hEvent);
        if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
        krInternal::freeBlock(p);
        return error;
    }
    p->handle = handle;
    port = p;
    return 0;
}

void krPlatform::serialClose(SerialPort* port) {
    serialJoinEvents(port);
    closeDevice(port);
}

int krPlatform::serialApply(SerialPort* port, const SerialSettings& settings) {
    DCB dcb;
    memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    if (!GetCommState(port->handle, &dcb)) return lastError();
    dcb.BaudRate = settings.baudRate;
    dcb.ByteSize = settings.dataBits;
    dcb.Parity = settings.parity;
    dcb.StopBits = settings.stopBits;
    dcb.fBinary = TRUE;
    dcb.fParity = settings.parity != KR_SERIAL_PARITY_NONE;
    dcb.fOutxCtsFlow = settings.flow == KR_SERIAL_FLOW_RTSCTS;
    dcb.fRtsControl =
            settings.flow == KR_SERIAL_FLOW_RTSCTS ? RTS_CONTROL_HANDSHAKE : RTS_CONTROL_ENABLE;
    dcb.fOutxDsrFlow = settings.flow == KR_SERIAL_FLOW_DTRDSR;
    dcb.fDtrControl =
            settings.flow == KR_SERIAL_FLOW_DTRDSR ? DTR_CONTROL_HANDSHAKE : DTR_CONTROL_ENABLE;
    dcb.fDsrSensitivity = FALSE;
    dcb.fOutX = dcb.fInX = settings.flow == KR_SERIAL_FLOW_XONXOFF;
    dcb.fErrorChar = dcb.fNull = dcb.fAbortOnError = FALSE;
    if (!SetCommState(port->handle, &dcb)) return kSerialUnsupported;
    return 0;
}

int krPlatform::serialRead(SerialPort* port,
                           void* buffer,
                           unsigned int size,
                           unsigned int& got,
                           unsigned int timeoutMs) {
    const bool infinite = timeoutMs == KR_SERIAL_TIMEOUT_INFINITE;
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    unsigned char* bytes = static_cast<unsigned char*>(buffer);
    while (got < size) {
        ULONGLONG now = GetTickCount64();
        DWORD wait = infinite          ? kInfiniteSliceMs
                     : now >= deadline ? 0
                                       : static_cast<DWORD>(deadline - now);
        DWORD want = size - got;
        if (wait == 0) {
            // Past the deadline only what is queued is taken. The queue is asked first: Wine
            // lets even a {MAXDWORD, 0, 0} read wait for a first byte.
            DWORD errors = 0;
            COMSTAT status;
            memset(&status, 0, sizeof status);
            if (!ClearCommError(port->handle, &errors, &status)) return lastError();
            if (status.cbInQue == 0) return 0;
            if (status.cbInQue < want) want = status.cbInQue;
        }
        if (!setReadTimeouts(port->handle, wait)) return lastError();
        DWORD count = 0;
        int error = readOnce(port->handle, port->readIo, bytes + got, want, count);
        if (error != 0) return error;
        got += count;
    }
    return 0;
}

int krPlatform::serialWrite(SerialPort* port,
                            const void* buffer,
                            unsigned int size,
                            unsigned int& written,
                            unsigned int timeoutMs) {
    if (size == 0) return 0;
    OVERLAPPED& io = port->writeIo;
    ResetEvent(io.hEvent);
    DWORD count = 0;
    if (!WriteFile(port->handle, buffer, size, nullptr, &io)) {
        if (GetLastError() != ERROR_IO_PENDING) return lastError();
        DWORD wait = timeoutMs == KR_SERIAL_TIMEOUT_INFINITE ? INFINITE : timeoutMs;
        if (WaitForSingleObject(io.hEvent, wait) != WAIT_OBJECT_0) {
            // The deadline passed: cancel, then learn how much went out before.
            CancelIo(port->handle);
            GetOverlappedResult(port->handle, &io, &count, TRUE);
            written = count;
            return 0;
        }
    }
    if (!GetOverlappedResult(port->handle, &io, &count, TRUE)) return lastError();
    written = count;
    return 0;
}

int krPlatform::serialQueued(SerialPort* port, unsigned int& count) {
    DWORD errors = 0;
    COMSTAT status;
    memset(&status, 0, sizeof status);
    if (!ClearCommError(port->handle, &errors, &status)) return lastError();
    count = status.cbInQue;
    return 0;
}

int krPlatform::serialDrain(SerialPort* port) {
    return FlushFileBuffers(port->handle) ? 0 : lastError();
}

int krPlatform::serialPurge(SerialPort* port, bool rx, bool tx) {
    DWORD flags = (rx ? PURGE_RXCLEAR : 0) | (tx ? PURGE_TXCLEAR : 0);
    if (flags == 0) return 0;
    return PurgeComm(port->handle, flags) ? 0 : lastError();
}

int krPlatform::serialSetLine(SerialPort* port, int line, bool on) {
    DWORD function = line == 0 ? (on ? SETDTR : CLRDTR) : (on ? SETRTS : CLRRTS);
    return EscapeCommFunction(port->handle, function) ? 0 : kSerialUnsupported;
}

int krPlatform::serialModemLines(SerialPort* port, unsigned int& lines) {
    DWORD status = 0;
    if (!GetCommModemStatus(port->handle, &status)) return kSerialUnsupported;
    lines = status & (MS_CTS_ON | MS_DSR_ON | MS_RING_ON | MS_RLSD_ON);
    return 0;
}

int krPlatform::serialBreak(SerialPort* port, unsigned int ms) {
    if (!SetCommBreak(port->handle)) return kSerialUnsupported;
    Sleep(ms);
    return ClearCommBreak(port->handle) ? 0 : kSerialUnsupported;
}

int krPlatform::serialStartEvents(SerialPort* port,
                                  unsigned int mask,
                                  unsigned int pollMs,
                                  const SerialEventSink& sink) {
    serialJoinEvents(port);  // a thread that ended by itself
    port->stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    port->buffer = static_cast<unsigned char*>(krInternal::allocBlock(kEventBufferSize));
    port->mask = mask;
    port->pollMs = pollMs;
    port->sink = sink;
    port->orphaned = false;
    port->thread = nullptr;
    // The thread starts only once its handle and flag are stored: an orphaned thread closes
    // its own handle and clears the flag.
    if (port->stopEvent != nullptr && port->buffer != nullptr) {
        port->thread = CreateThread(nullptr, 0, eventThread, port, CREATE_SUSPENDED, nullptr);
    }
    if (port->thread == nullptr) {
        releaseThreadState(port);
        return kSerialNoMemory;
    }
    port->threadStarted = true;
    ResumeThread(port->thread);
    return 0;
}

void krPlatform::serialWakeEvents(SerialPort* port) {
    if (currentEventPort != port && !port->threadStarted) return;
    SetEvent(port->stopEvent);
}

bool krPlatform::serialJoinEvents(SerialPort* port) {
    if (!port->threadStarted) return false;
    WaitForSingleObject(port->thread, INFINITE);
    CloseHandle(port->thread);
    port->thread = nullptr;
    releaseThreadState(port);
    return true;
}

bool krPlatform::serialOnEventThread(const SerialPort* port) {
    return port != nullptr && currentEventPort == port;
}

void krPlatform::serialOrphan(SerialPort* port) {
    port->orphaned = true;
}

int krPlatform::serialListPorts(char**& names, unsigned int& count) {
    names = nullptr;
    count = 0;
    DWORD size = 16384;
    char* devices = nullptr;
    for (;;) {
        devices = static_cast<char*>(krInternal::allocBlock(size));
        if (devices == nullptr) return kSerialNoMemory;
        if (QueryDosDeviceA(nullptr, devices, size) != 0) break;
        int error = lastError();
        krInternal::freeBlock(devices);
        if (error != ERROR_INSUFFICIENT_BUFFER || size >= (1u << 24)) return error;
        size *= 2;
    }
    int error = 0;
    unsigned int capacity = 0;
    for (const char* device = devices; *device != 0; device += strlen(device) + 1) {
        if (strncmp(device, "COM", 3) != 0 || device[3] == 0) continue;
        bool digits = true;
        for (const char* c = device + 3; *c != 0; ++c)
            digits = digits && *c >= '0' && *c <= '9';
        if (!digits) continue;
        error = serialAddName(names, count, capacity, device);
        if (error != 0) break;
    }
    krInternal::freeBlock(devices);
    return error;
}
