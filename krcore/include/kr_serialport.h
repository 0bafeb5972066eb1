// kr_serialport.h — a serial port with deadlines on every call and an optional event thread.
// KR_SerialPort opens a port by name, configures it, reads and writes with a timeout on every
// call and controls the modem lines. startEvents runs the library's only background thread,
// which waits for the port's events and hands the bytes received and the line changes to the
// caller's callback. KR_serialListPorts names the ports that the system knows.
#ifndef KRCORE_KR_SERIALPORT_H
#define KRCORE_KR_SERIALPORT_H

#include <wchar.h>

#include <atomic>

#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_reporter.h"
#include "kr_str.h"

namespace krPlatform {
struct SerialPort;
}

// The parity and stop-bit numbers are those of the Windows device control block.
enum KR_SERIAL_PARITY {
    KR_SERIAL_PARITY_NONE = 0,
    KR_SERIAL_PARITY_ODD = 1,
    KR_SERIAL_PARITY_EVEN = 2,
    KR_SERIAL_PARITY_MARK = 3,
    KR_SERIAL_PARITY_SPACE = 4
};

enum KR_SERIAL_STOPBITS {
    KR_SERIAL_STOPBITS_ONE = 0,
    KR_SERIAL_STOPBITS_ONE5 = 1,
    KR_SERIAL_STOPBITS_TWO = 2
};

enum KR_SERIAL_FLOW {
    KR_SERIAL_FLOW_NONE = 0,
    KR_SERIAL_FLOW_RTSCTS = 1,
    KR_SERIAL_FLOW_XONXOFF = 2,
    KR_SERIAL_FLOW_DTRDSR = 3
};

// Event bits (the Windows EV_ values) and the library's own CLOSED: the device is gone.
enum : unsigned int {
    KR_SERIAL_EV_RXCHAR = 0x0001,
    KR_SERIAL_EV_TXEMPTY = 0x0004,
    KR_SERIAL_EV_CTS = 0x0008,
    KR_SERIAL_EV_DSR = 0x0010,
    KR_SERIAL_EV_CD = 0x0020,
    KR_SERIAL_EV_BREAK = 0x0040,
    KR_SERIAL_EV_ERR = 0x0080,
    KR_SERIAL_EV_RING = 0x0100,
    KR_SERIAL_EV_CLOSED = 0x10000
};

// Modem line bits (the Windows MS_ values).
enum : unsigned int {
    KR_SERIAL_LINE_CTS = 0x10,
    KR_SERIAL_LINE_DSR = 0x20,
    KR_SERIAL_LINE_RING = 0x40,
    KR_SERIAL_LINE_CD = 0x80
};

// Line error bits (the Windows CE_ values).
enum : unsigned int {
    KR_SERIAL_ERR_RXOVER = 0x1,
    KR_SERIAL_ERR_OVERRUN = 0x2,
    KR_SERIAL_ERR_PARITY = 0x4,
    KR_SERIAL_ERR_FRAME = 0x8,
    KR_SERIAL_ERR_BREAK = 0x10
};

// A timeout that never passes.
const unsigned int KR_SERIAL_TIMEOUT_INFINITE = 0xFFFFFFFFu;

struct KR_SerialConfig {
    unsigned int baudRate = 9600;
    unsigned char dataBits = 8;  // 5..8
    KR_SERIAL_PARITY parity = KR_SERIAL_PARITY_NONE;
    KR_SERIAL_STOPBITS stopBits = KR_SERIAL_STOPBITS_ONE;
    KR_SERIAL_FLOW flow = KR_SERIAL_FLOW_NONE;
};

// What the event thread hands to the callback. data and size are the bytes received (RXCHAR),
// valid only during the callback; modemLines holds the line bits after a line change; errors the
// line error bits (ERR); osError the system error that ended the port (CLOSED).
struct KR_SerialEvent {
    unsigned int events;
    const unsigned char* data;
    unsigned int size;
    unsigned int modemLines;
    unsigned int errors;
    int osError;
};

class KR_SerialPort;

// Runs on the event thread; see KR_SerialPort for what it may call.
typedef void (*KR_SERIAL_EVENT_FN)(KR_SerialPort* port, const KR_SerialEvent* event, void* user);

// KR_SerialPort — one open serial port (or none), opened for exclusive use: a second open of the
// same device fails with KR_RET_ERR_FILE, for every user. Every read and write has a deadline;
// KR_RET_TRUE means all bytes moved, KR_RET_FALSE that the deadline passed first (got/written
// tell how many moved; they are set to 0 first). Ports cannot be copied (KR_RET_ERR_NSUP). The
// destructor closes the port. Operations on a port that is not open answer KR_RET_ERR_CALL.
//
// The event thread. startEvents starts one thread per port that calls fn for every event in the
// mask; stopEvents stops and joins it within one poll period plus the callback in progress.
// With RXCHAR in the mask the thread owns the receiving side, and read answers KR_RET_ERR_CALL;
// without it the thread never reads, and the owner reads as usual. Writes, modem lines and
// configuration stay available to the owner either way; only one thread may write at a time.
// A device that goes away arrives as a CLOSED event (osError set, getLastEventError() too once
// the thread has ended), and the thread ends.
//
// The callback runs on the event thread and must return promptly. It may call, on its own port,
// write, bytesAvailable, getModemLines, setDTR, setRTS, isOpen, eventsRunning and stopEvents.
// There these neither clear the user error nor report: they only answer statuses, so the event
// thread never touches the process-wide cells, the reporter or the stream. stopEvents from the
// callback only asks the thread to end (a thread cannot join itself): the owner calls stopEvents
// or close later to join it. close from the callback answers KR_RET_ERR_CALL and does nothing.
// Deleting the port from its callback is a caller's error that the library survives: the thread
// takes the port's device over, closes it when the callback returns and ends. No lock is taken:
// the thread and the owner share only two atomic flags.
//
//   KR_SerialPort port;
//   port.open("/dev/ttyUSB0", KR_SerialConfig());               // 9600 8N1
//   port.write("AT\r", 3, written, 100);                        // KR_RET_TRUE, written 3
//   port.read(reply, sizeof reply, got, 500);                   // KR_RET_FALSE if fewer came
class KR_API KR_SerialPort : public KR_KorvaneClass {
public:
    KR_SerialPort();
    KR_SerialPort(const KR_SerialPort& other);
    ~KR_SerialPort() override;
    KR_SerialPort& operator=(const KR_SerialPort& other);

    // Opens name for exclusive use and applies config, closing a port already open first. Windows
    // names without a backslash get the "\\.\" prefix (so COM10 and above open). KR_RET_ERR_ARG
    // for a null or empty name or a bad config; KR_RET_ERR_FILE (with the system error) when the
    // device is missing, refused or in use; KR_RET_ERR_NSUP when it is no serial device or
    // refuses the config. A failure leaves the port closed.
    KR_RET_STATUS open(const char* name, const KR_SerialConfig& config);
    KR_RET_STATUS open(const wchar_t* name, const KR_SerialConfig& config);
    // Stops the event thread, restores the device's settings and closes. KR_RET_FALSE when no
    // port was open; the port always ends closed.
    KR_RET_STATUS close();

    // Data bits 5..8, enumerators in range and a baud rate above 0, else KR_RET_ERR_ARG before
    // anything is applied. A rate or mode the platform lacks is KR_RET_ERR_NSUP: on POSIX only
    // the standard rates, no 1.5 stop bits, no DTR/DSR flow, mark and space parity only where
    // the system has them. A refused config leaves the previous one.
    KR_RET_STATUS setConfig(const KR_SerialConfig& config);
    KR_RET_STATUS getConfig(KR_SerialConfig& config);

    // Timeout 0 takes what is already there; KR_SERIAL_TIMEOUT_INFINITE waits for all bytes.
    // KR_RET_ERR_FILE on an I/O error or a device that went away (got holds what came before).
    KR_RET_STATUS read(void* buffer, unsigned int size, unsigned int& got, unsigned int timeoutMs);
    KR_RET_STATUS write(const void* buffer,
                        unsigned int size,
                        unsigned int& written,
                        unsigned int timeoutMs);
    KR_RET_STATUS bytesAvailable(unsigned int& count);
    // Waits until everything written has been transmitted.
    KR_RET_STATUS drain();
    // Discards what is queued for reading (rx) and for sending (tx).
    KR_RET_STATUS purge(unsigned char rx, unsigned char tx);

    // A driver without modem lines (a pseudo-terminal) answers KR_RET_ERR_NSUP.
    KR_RET_STATUS setDTR(unsigned char on);
    KR_RET_STATUS setRTS(unsigned char on);
    // lines := the KR_SERIAL_LINE_ bits that are set.
    KR_RET_STATUS getModemLines(unsigned int& lines);
    KR_RET_STATUS sendBreak(unsigned int ms);

    // KR_RET_ERR_ARG for a null fn or an empty mask; KR_RET_ERR_CALL when the thread runs
    // already or the port is closed; KR_RET_ERR_MEM when the thread cannot start.
    KR_RET_STATUS startEvents(unsigned int mask, KR_SERIAL_EVENT_FN fn, void* user);
    // KR_RET_FALSE when no thread was there to stop.
    KR_RET_STATUS stopEvents();

    // True from startEvents until the thread ends (stopped, or the device went away).
    unsigned char eventsRunning() const;

    unsigned char isOpen() const { return sys_ != nullptr; }

    unsigned char objIsEnabled() const { return initialised_; }

    // The system error that ended the last event thread (0: none, or the thread still runs).
    int getLastEventError() const;

private:
    template <class Char>
    KR_RET_STATUS openNamed(const Char* name, const KR_SerialConfig& config);
    KR_RET_STATUS joinEvents();
    static void onEvent(void* context, const KR_SerialEvent& event);
    static void onThreadEnd(void* context, int osError);

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    unsigned char initialised_;
    krPlatform::SerialPort* sys_;  // null exactly when no port is open
    KR_String name_;
    KR_SerialConfig config_;
    unsigned int eventMask_;
    KR_SERIAL_EVENT_FN callback_;
    void* user_;
    std::atomic<unsigned char> running_;        // set by startEvents, cleared by the thread's end
    std::atomic<unsigned char> stopRequested_;  // asks the thread to end
    unsigned int pollMs_;
    int lastEventError_;  // written by the thread before it clears running_
};

// names := the serial ports of the system, sorted: on Linux "/dev/<name>" for each tty with a
// device behind it (ports that report an unknown type, with no hardware, are left out); on
// Windows the "COM<n>" devices.
KR_API KR_RET_STATUS KR_serialListPorts(KR_Array<KR_String>& names);
KR_API KR_RET_STATUS KR_serialListPortsW(KR_Array<KR_StringW>& names);

#endif  // KRCORE_KR_SERIALPORT_H
