// kr_platform_serial_posix.cpp — serial ports on POSIX: termios, poll and a self-pipe thread.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include "kr_alloc.h"
#include "kr_platform.h"

#ifdef __linux__
#include <linux/serial.h>
#endif

struct krPlatform::SerialPort {
    int fd;
    struct termios saved;  // the device's settings before open, restored by close
    // The event thread. wakeRead/wakeWrite are its self-pipe; buffer receives its reads.
    bool threadStarted;
    pthread_t thread;
    int wakeRead;
    int wakeWrite;
    unsigned char* buffer;
    unsigned int mask;
    unsigned int pollMs;
    SerialEventSink sink;
    // Set and read only on the event thread: the owner gave the port up from the callback.
    bool orphaned;
};

namespace {

using krPlatform::SerialPort;

// Half the line discipline's 4 KiB read buffer: a read that leaves the rest lets the sender
// refill behind it (on a pty, 1 MiB of input arrives about 1.3 times as fast as with 4 KiB reads).
const size_t kEventBufferSize = 2048;

// The port whose event thread runs on this thread; null on every other thread.
thread_local const SerialPort* currentEventPort = nullptr;

struct BaudRate {
    unsigned int rate;
    speed_t code;
};

const BaudRate kBaudRates[] = {
        {50, B50},           {75, B75},           {110, B110},         {134, B134},
        {150, B150},         {200, B200},         {300, B300},         {600, B600},
        {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
        {9600, B9600},       {19200, B19200},     {38400, B38400},
#ifdef B57600
        {57600, B57600},
#endif
#ifdef B115200
        {115200, B115200},
#endif
#ifdef B230400
        {230400, B230400},
#endif
#ifdef B460800
        {460800, B460800},   {500000, B500000},   {576000, B576000},   {921600, B921600},
        {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000}, {2000000, B2000000},
        {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
#endif
};

long long nowNs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

// The deadline of a wait of timeoutMs from now; -1 for none.
long long deadlineOf(unsigned int timeoutMs) {
    if (timeoutMs == KR_SERIAL_TIMEOUT_INFINITE) return -1;
    return nowNs() + static_cast<long long>(timeoutMs) * 1000000LL;
}

// What is left of the deadline as a poll timeout, rounded up so that no wait ends early.
int remainingMs(long long deadline) {
    if (deadline < 0) return -1;
    long long left = deadline - nowNs();
    if (left <= 0) return 0;
    long long ms = (left + 999999) / 1000000;
    return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

// Drivers without the asked ioctl (a pseudo-terminal has no modem lines) refuse in these ways.
int unsupportedOr(int error) {
    return error == ENOTTY || error == EINVAL || error == ENOTSUP || error == ENOSYS
                   ? krPlatform::kSerialUnsupported
                   : error;
}

int closeFd(int fd) {
    int result;
    do
        result = ::close(fd);
    while (result != 0 && errno == EINTR);
    return result;
}

void closeDevice(SerialPort* port) {
    tcsetattr(port->fd, TCSANOW, &port->saved);
    ioctl(port->fd, TIOCNXCL);
    closeFd(port->fd);
    krInternal::freeBlock(port);
}

void releaseThreadState(SerialPort* port) {
    closeFd(port->wakeRead);
    closeFd(port->wakeWrite);
    krInternal::freeBlock(port->buffer);
    port->buffer = nullptr;
    port->threadStarted = false;
}

unsigned int modemBits(int lines) {
    unsigned int bits = 0;
    if (lines & TIOCM_CTS) bits |= KR_SERIAL_LINE_CTS;
    if (lines & TIOCM_DSR) bits |= KR_SERIAL_LINE_DSR;
    if (lines & TIOCM_RNG) bits |= KR_SERIAL_LINE_RING;
    if (lines & TIOCM_CD) bits |= KR_SERIAL_LINE_CD;
    return bits;
}

// Line error and break counters where the driver keeps them (Linux serial drivers; not a pty).
struct LineCounts {
    int frame, overrun, parity, brk, bufOverrun;
};

bool readCounts(int fd, LineCounts& counts) {
#ifdef TIOCGICOUNT
    struct serial_icounter_struct c;
    memset(&c, 0, sizeof c);
    if (ioctl(fd, TIOCGICOUNT, &c) != 0) return false;
    counts = LineCounts{c.frame, c.overrun, c.parity, c.brk, c.buf_overrun};
    return true;
#else
    (void)fd;
    (void)counts;
    return false;
#endif
}

// The thread's loop; answers the system error that ended it, 0 for a stop.
int runEvents(SerialPort* port) {
    const unsigned int mask = port->mask;
    const bool rx = (mask & KR_SERIAL_EV_RXCHAR) != 0;
    int lines = 0;
    LineCounts counts = {0, 0, 0, 0, 0};
    int outQueued = 0;
    const unsigned int lineEvents =
            KR_SERIAL_EV_CTS | KR_SERIAL_EV_DSR | KR_SERIAL_EV_CD | KR_SERIAL_EV_RING;
    // What the driver cannot tell is silently unavailable; with nothing left to poll the thread
    // sleeps until input, a hang-up or the wake pipe.
    bool haveLines = (mask & lineEvents) != 0 && ioctl(port->fd, TIOCMGET, &lines) == 0;
    bool haveCounts =
            (mask & (KR_SERIAL_EV_BREAK | KR_SERIAL_EV_ERR)) != 0 && readCounts(port->fd, counts);
    bool haveOutQueue =
            (mask & KR_SERIAL_EV_TXEMPTY) != 0 && ioctl(port->fd, TIOCOUTQ, &outQueued) == 0;
    int timeout = haveLines || haveCounts || haveOutQueue ? static_cast<int>(port->pollMs) : -1;
    auto deliver = [port](const KR_SerialEvent& event) {
        port->sink.event(port->sink.context, event);
        return !port->orphaned;
    };
    for (;;) {
        if (port->sink.stopRequested->load(std::memory_order_acquire)) return 0;
        struct pollfd fds[2] = {{port->fd, static_cast<short>(rx ? POLLIN : 0), 0},
                                {port->wakeRead, POLLIN, 0}};
        int n = poll(fds, 2, timeout);
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (fds[1].revents != 0) return 0;
        short revents = fds[0].revents;
        if (rx && (revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            ssize_t r = ::read(port->fd, port->buffer, kEventBufferSize);
            if (r > 0) {
                KR_SerialEvent event = {
                        KR_SERIAL_EV_RXCHAR, port->buffer, static_cast<unsigned int>(r), 0, 0, 0};
                if (!deliver(event)) return 0;
            } else if (r == 0) {
                return EIO;
            } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
                return errno;
            }
        } else if ((revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
            return (revents & POLLNVAL) != 0 ? EBADF : EIO;
        }
        KR_SerialEvent event = {0, nullptr, 0, 0, 0, 0};
        int nowLines = 0;
        if (haveLines && ioctl(port->fd, TIOCMGET, &nowLines) == 0) {
            int changed = nowLines ^ lines;
            lines = nowLines;
            if (changed & TIOCM_CTS) event.events |= KR_SERIAL_EV_CTS;
            if (changed & TIOCM_DSR) event.events |= KR_SERIAL_EV_DSR;
            if (changed & TIOCM_CD) event.events |= KR_SERIAL_EV_CD;
            if (changed & TIOCM_RNG) event.events |= KR_SERIAL_EV_RING;
        }
        LineCounts now;
        if (haveCounts && readCounts(port->fd, now)) {
            if (now.frame != counts.frame) event.errors |= KR_SERIAL_ERR_FRAME;
            if (now.overrun != counts.overrun) event.errors |= KR_SERIAL_ERR_OVERRUN;
            if (now.parity != counts.parity) event.errors |= KR_SERIAL_ERR_PARITY;
            if (now.bufOverrun != counts.bufOverrun) event.errors |= KR_SERIAL_ERR_RXOVER;
            if (event.errors != 0) event.events |= KR_SERIAL_EV_ERR;
            if (now.brk != counts.brk) {
                event.events |= KR_SERIAL_EV_BREAK;
                event.errors |= KR_SERIAL_ERR_BREAK;
            }
            counts = now;
        }
        int queued = 0;
        if (haveOutQueue && ioctl(port->fd, TIOCOUTQ, &queued) == 0) {
            if (outQueued != 0 && queued == 0) event.events |= KR_SERIAL_EV_TXEMPTY;
            outQueued = queued;
        }
        event.events &= mask;
        if (event.events != 0) {
            event.modemLines = modemBits(lines);
            if (!deliver(event)) return 0;
        }
    }
}

void* eventThread(void* argument) {
    SerialPort* port = static_cast<SerialPort*>(argument);
    currentEventPort = port;
    int osError = runEvents(port);
    if (osError != 0 && !port->orphaned &&
        !port->sink.stopRequested->load(std::memory_order_acquire)) {
        KR_SerialEvent event = {KR_SERIAL_EV_CLOSED, nullptr, 0, 0, 0, osError};
        port->sink.event(port->sink.context, event);
    }
    if (port->orphaned) {
        // Nobody joins this thread: it frees what the owner gave up and leaves.
        pthread_detach(pthread_self());
        releaseThreadState(port);
        closeDevice(port);
    } else {
        port->sink.ended(port->sink.context, osError);
    }
    currentEventPort = nullptr;
    return nullptr;
}

}  // namespace

int krPlatform::serialOpen(const char* name, const wchar_t* nameW, bool wide, SerialPort*& port) {
    (void)nameW;
    (void)wide;
    port = nullptr;
    if (name == nullptr) return ENOENT;
    SerialPort* p = static_cast<SerialPort*>(krInternal::allocZeroed(1, sizeof(SerialPort)));
    if (p == nullptr) return kSerialNoMemory;
    int fd;
    do
        fd = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    while (fd < 0 && errno == EINTR);
    int error = fd < 0 ? errno : 0;
    if (error == 0 && tcgetattr(fd, &p->saved) != 0) {
        error = errno == ENOTTY || errno == EINVAL ? kSerialNotSerial : errno;
    }
    // TIOCEXCL keeps other users out but not root; the lock keeps out everyone who opens the
    // device through this library.
    if (error == 0 && ioctl(fd, TIOCEXCL) != 0) error = errno;
    if (error == 0 && flock(fd, LOCK_EX | LOCK_NB) != 0) {
        error = errno == EWOULDBLOCK ? EBUSY : errno;
        ioctl(fd, TIOCNXCL);
    }
    if (error == 0) {
        struct termios raw = p->saved;
        cfmakeraw(&raw);
        raw.c_cflag |= CLOCAL | CREAD;
        // VMIN 1: a non-blocking read of an empty queue fails with EAGAIN, so that a read of 0
        // bytes can only mean a hang-up.
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        if (tcsetattr(fd, TCSANOW, &raw) != 0) error = errno;
    }
    if (error != 0) {
        if (fd >= 0) closeFd(fd);
        krInternal::freeBlock(p);
        return error;
    }
    p->fd = fd;
    p->wakeRead = p->wakeWrite = -1;
    port = p;
    return 0;
}

void krPlatform::serialClose(SerialPort* port) {
    serialJoinEvents(port);
    closeDevice(port);
}

int krPlatform::serialApply(SerialPort* port, const SerialSettings& settings) {
    const BaudRate* baud = nullptr;
    for (const BaudRate& b : kBaudRates) {
        if (b.rate == settings.baudRate) baud = &b;
    }
    if (baud == nullptr) return kSerialUnsupported;
    if (settings.stopBits == KR_SERIAL_STOPBITS_ONE5) return kSerialUnsupported;
    if (settings.flow == KR_SERIAL_FLOW_DTRDSR) return kSerialUnsupported;
    struct termios t;
    if (tcgetattr(port->fd, &t) != 0) return errno;
    static const tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
    t.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CSTOPB);
    t.c_cflag |= kSizes[settings.dataBits - 5];
    t.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | INPCK);
#ifdef CRTSCTS
    t.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
#endif
#ifdef CMSPAR
    t.c_cflag &= ~static_cast<tcflag_t>(CMSPAR);
    const tcflag_t markSpace = CMSPAR;
#else
    const tcflag_t markSpace = 0;
#endif
    switch (settings.parity) {
        case KR_SERIAL_PARITY_ODD:
            t.c_cflag |= PARENB | PARODD;
            break;
        case KR_SERIAL_PARITY_EVEN:
            t.c_cflag |= PARENB;
            break;
        case KR_SERIAL_PARITY_MARK:
            if (markSpace == 0) return kSerialUnsupported;
            t.c_cflag |= PARENB | PARODD | markSpace;
            break;
        case KR_SERIAL_PARITY_SPACE:
            if (markSpace == 0) return kSerialUnsupported;
            t.c_cflag |= PARENB | markSpace;
            break;
        default:
            break;
    }
    if (settings.stopBits == KR_SERIAL_STOPBITS_TWO) t.c_cflag |= CSTOPB;
    if (settings.flow == KR_SERIAL_FLOW_RTSCTS) {
#ifdef CRTSCTS
        t.c_cflag |= CRTSCTS;
#else
        return kSerialUnsupported;
#endif
    } else if (settings.flow == KR_SERIAL_FLOW_XONXOFF) {
        t.c_iflag |= IXON | IXOFF;
    }
    if (cfsetispeed(&t, baud->code) != 0 || cfsetospeed(&t, baud->code) != 0) {
        return kSerialUnsupported;
    }
    if (tcsetattr(port->fd, TCSANOW, &t) != 0) return unsupportedOr(errno);
    return 0;
}

int krPlatform::serialRead(SerialPort* port,
                           void* buffer,
                           unsigned int size,
                           unsigned int& got,
                           unsigned int timeoutMs) {
    long long deadline = deadlineOf(timeoutMs);
    unsigned char* bytes = static_cast<unsigned char*>(buffer);
    while (got < size) {
        ssize_t r = ::read(port->fd, bytes + got, size - got);
        if (r > 0) {
            got += static_cast<unsigned int>(r);
            continue;
        }
        if (r == 0) return EIO;  // a tty reads nothing only after a hang-up
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return errno;
        int wait = remainingMs(deadline);
        if (wait == 0) return 0;
        struct pollfd fds = {port->fd, POLLIN, 0};
        if (poll(&fds, 1, wait) < 0 && errno != EINTR) return errno;
        // A hang-up shows in the next read (EIO); with the deadline passed that read still
        // takes what arrived last.
        if ((fds.revents & (POLLERR | POLLNVAL)) != 0) return EIO;
    }
    return 0;
}

int krPlatform::serialWrite(SerialPort* port,
                            const void* buffer,
                            unsigned int size,
                            unsigned int& written,
                            unsigned int timeoutMs) {
    long long deadline = deadlineOf(timeoutMs);
    const unsigned char* bytes = static_cast<const unsigned char*>(buffer);
    while (written < size) {
        ssize_t r = ::write(port->fd, bytes + written, size - written);
        if (r > 0) {
            written += static_cast<unsigned int>(r);
            continue;
        }
        if (r < 0 && errno == EINTR) continue;
        if (r < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return errno;
        int wait = remainingMs(deadline);
        if (wait == 0) return 0;
        struct pollfd fds = {port->fd, POLLOUT, 0};
        if (poll(&fds, 1, wait) < 0 && errno != EINTR) return errno;
        if ((fds.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return EIO;
    }
    return 0;
}

int krPlatform::serialQueued(SerialPort* port, unsigned int& count) {
    int queued = 0;
    if (ioctl(port->fd, FIONREAD, &queued) != 0) return errno;
    count = static_cast<unsigned int>(queued);
    return 0;
}

int krPlatform::serialDrain(SerialPort* port) {
    int result;
    do
        result = tcdrain(port->fd);
    while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

int krPlatform::serialPurge(SerialPort* port, bool rx, bool tx) {
    if (!rx && !tx) return 0;
    int which = rx && tx ? TCIOFLUSH : rx ? TCIFLUSH : TCOFLUSH;
    return tcflush(port->fd, which) == 0 ? 0 : errno;
}

int krPlatform::serialSetLine(SerialPort* port, int line, bool on) {
    int bits = line == 0 ? TIOCM_DTR : TIOCM_RTS;
    if (ioctl(port->fd, on ? TIOCMBIS : TIOCMBIC, &bits) != 0) return unsupportedOr(errno);
    return 0;
}

int krPlatform::serialModemLines(SerialPort* port, unsigned int& lines) {
    int bits = 0;
    if (ioctl(port->fd, TIOCMGET, &bits) != 0) return unsupportedOr(errno);
    lines = modemBits(bits);
    return 0;
}

int krPlatform::serialBreak(SerialPort* port, unsigned int ms) {
#if defined(TIOCSBRK) && defined(TIOCCBRK)
    if (ioctl(port->fd, TIOCSBRK) != 0) return unsupportedOr(errno);
    struct timespec pause = {static_cast<time_t>(ms / 1000),
                             static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
    }
    if (ioctl(port->fd, TIOCCBRK) != 0) return unsupportedOr(errno);
    return 0;
#else
    (void)ms;
    return tcsendbreak(port->fd, 0) == 0 ? 0 : unsupportedOr(errno);
#endif
}

int krPlatform::serialStartEvents(SerialPort* port,
                                  unsigned int mask,
                                  unsigned int pollMs,
                                  const SerialEventSink& sink) {
    serialJoinEvents(port);  // a thread that ended by itself
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK) != 0) return errno;
    port->buffer = static_cast<unsigned char*>(krInternal::allocBlock(kEventBufferSize));
    port->wakeRead = pipeFds[0];
    port->wakeWrite = pipeFds[1];
    port->mask = mask;
    port->pollMs = pollMs;
    port->sink = sink;
    port->orphaned = false;
    // Set before the thread exists: an orphaned thread clears it on its way out.
    port->threadStarted = true;
    if (port->buffer == nullptr || pthread_create(&port->thread, nullptr, eventThread, port) != 0) {
        releaseThreadState(port);
        return kSerialNoMemory;
    }
    return 0;
}

void krPlatform::serialWakeEvents(SerialPort* port) {
    // On its own thread the port's thread is known to run; elsewhere only the owner asks.
    if (currentEventPort != port && !port->threadStarted) return;
    char byte = 1;
    // A full pipe already wakes the thread.
    while (::write(port->wakeWrite, &byte, 1) < 0 && errno == EINTR) {
    }
}

bool krPlatform::serialJoinEvents(SerialPort* port) {
    if (!port->threadStarted) return false;
    pthread_join(port->thread, nullptr);
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
    DIR* dir = opendir("/sys/class/tty");
    if (dir == nullptr) return errno == ENOENT ? 0 : errno;
    int error = 0;
    unsigned int capacity = 0;
    while (struct dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        char path[PATH_MAX];
        snprintf(path, sizeof path, "/sys/class/tty/%s/device", entry->d_name);
        struct stat info;
        if (stat(path, &info) != 0) continue;
        char device[PATH_MAX];
        snprintf(device, sizeof device, "/dev/%s", entry->d_name);
#ifdef TIOCGSERIAL
        // Drivers such as 8250 register ports with no hardware behind them; they say so.
        int fd = ::open(device, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) {
            struct serial_struct serial;
            memset(&serial, 0, sizeof serial);
            bool unknown = ioctl(fd, TIOCGSERIAL, &serial) == 0 && serial.type == PORT_UNKNOWN;
            closeFd(fd);
            if (unknown) continue;
        }
#endif
        error = serialAddName(names, count, capacity, device);
        if (error != 0) break;
    }
    closedir(dir);
    return error;
}
