// test_serialport.cpp — the serial port on a pseudo-terminal pair: configuration, reads and
// writes with deadlines, exclusive use, and the event thread with its callback. On Linux the
// test drives the master end; under Wine a null-modem pair of ptys (made by the test fixture)
// appears as COM42 (the port) and COM43 (the far end).
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "test_support.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

template <class Done>
bool waitFor(Done done, int ms = 5000) {
    Clock::time_point start = Clock::now();
    while (!done()) {
        if (msSince(start) > ms) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// The other end of the line, driven by the test.
class FarEnd {
public:
#ifdef _WIN32
    FarEnd() : port("COM42") {
        ok = far_.open("COM43", KR_SerialConfig()) == KR_RET_TRUE;
    }

    // Both keep the user error as it was, as the master end of a pty does.
    void send(const std::string& bytes) {
        int userError = KR_getUserError();
        unsigned int n = 0;
        far_.write(bytes.data(), static_cast<unsigned int>(bytes.size()), n, 5000);
        KR_setUserError(userError);
    }

    std::string receive(size_t size, unsigned int ms) {
        int userError = KR_getUserError();
        std::string bytes(size, '\0');
        unsigned int got = 0;
        far_.read(&bytes[0], static_cast<unsigned int>(size), got, ms);
        KR_setUserError(userError);
        return bytes.substr(0, got);
    }

    void hangUp() {}

private:
    KR_SerialPort far_;

public:
#else
    FarEnd() {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        ok = master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0;
        if (ok) port = ptsname(master);
    }

    ~FarEnd() {
        hangUp();
    }

    void send(const std::string& bytes) {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()), ::write(master, bytes.data(), bytes.size()));
    }

    std::string receive(size_t size, unsigned int ms) {
        std::string bytes;
        Clock::time_point start = Clock::now();
        while (bytes.size() < size && msSince(start) < ms) {
            struct pollfd fds = {master, POLLIN, 0};
            if (poll(&fds, 1, 10) <= 0) continue;
            char chunk[4096];
            ssize_t n = ::read(master, chunk, std::min(sizeof chunk, size - bytes.size()));
            if (n > 0) bytes.append(chunk, static_cast<size_t>(n));
        }
        return bytes;
    }

    void hangUp() {
        if (master >= 0) ::close(master);
        master = -1;
    }

    int master = -1;
#endif
    bool ok = false;
    std::string port;
};

class SerialPort : public ::testing::Test {
protected:
    void SetUp() override {
        if (!peer.ok) GTEST_SKIP() << "no pseudo-terminal pair (under Wine: the COM42 fixture)";
        ASSERT_KR_OK(port.open(peer.port.c_str(), KR_SerialConfig()));
    }

    FarEnd peer;
    KR_SerialPort port;
};

std::string randomBytes(std::mt19937& random, size_t size) {
    std::string bytes(size, '\0');
    for (char& c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

// What the callback saw, handed to the test thread under a lock of the test's own.
struct Collected {
    std::mutex mutex;
    std::string bytes;
    unsigned int events = 0;
    int osError = 0;
    std::atomic<int> calls{0};
    // Statuses of the port's operations called from the callback.
    KR_RET_STATUS echo = KR_RET_FALSE, stop = KR_RET_FALSE, close = KR_RET_FALSE;
    bool echoBack = false, stopInside = false, deleteInside = false;

    size_t size() {
        std::lock_guard<std::mutex> lock(mutex);
        return bytes.size();
    }
};

void collect(KR_SerialPort* port, const KR_SerialEvent* event, void* user) {
    Collected& c = *static_cast<Collected*>(user);
    std::lock_guard<std::mutex> lock(c.mutex);
    c.bytes.append(reinterpret_cast<const char*>(event->data), event->size);
    c.events |= event->events;
    if (event->events & KR_SERIAL_EV_CLOSED) c.osError = event->osError;
    if (c.echoBack && event->size > 0) {
        unsigned int written = 0;
        c.echo = port->write(event->data, event->size, written, 1000);
    }
    if (c.stopInside) {
        c.stop = port->stopEvents();
        c.close = port->close();
    }
    ++c.calls;
    if (c.deleteInside) delete port;
}

}  // namespace

TEST(SerialPortBadInput, StatusesAndReports) {
    KR_SerialPort port;
    unsigned int n = 7;
    char buffer[4];
    KR_SerialConfig config;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, port.read(buffer, 4, n, 0));
    EXPECT_EQ(0u, n);
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, port.write(buffer, 4, n, 0));
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, port.setConfig(config));
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, port.getModemLines(n));
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, port.startEvents(KR_SERIAL_EV_RXCHAR, collect, nullptr));
    EXPECT_KR_STATUS(KR_RET_FALSE, port.stopEvents());
    EXPECT_KR_STATUS(KR_RET_FALSE, port.close());
    KR_SerialPort copy(port);  // refused: a port is never shared
    EXPECT_TRUE(copy.objIsEnabled() && !copy.isOpen());

    const struct {
        const char* name;
        KR_SerialConfig config;
    } bad[] = {{"data bits 9", {9600, 9}},
               {"data bits 4", {9600, 4}},
               {"parity 7", {9600, 8, KR_SERIAL_PARITY(7)}},
               {"stop bits 3", {9600, 8, KR_SERIAL_PARITY_NONE, KR_SERIAL_STOPBITS(3)}},
               {"baud 0", {0}}};

    for (const auto& row : bad) {
        SCOPED_TRACE(row.name);
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, port.open("COM1", row.config));
    }
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, port.open(static_cast<const char*>(nullptr), config));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, port.open(L"", config));
    krtest::ReportCapture capture;
#ifdef _WIN32
    const char* missing = "COM99";
#else
    const char* missing = "/dev/krcore-no-such-port";
    EXPECT_KR_STATUS(KR_RET_ERR_NSUP, port.open("/dev/null", config));
    capture.clear();
#endif
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, port.open(missing, config));
    std::string report = capture.located();
    EXPECT_EQ(0u, report.find("ERROR: src/kr_serialport: line N: KR_SerialPort: open\n"
                              "system error "))
            << report;
    EXPECT_NE(std::string::npos, report.find("\nFile error\n\n")) << report;
    EXPECT_FALSE(port.isOpen());
}

TEST_F(SerialPort, ConfigurationAppliedOrRefusedWhole) {
    KR_SerialConfig wanted = {19200, 7, KR_SERIAL_PARITY_EVEN, KR_SERIAL_STOPBITS_TWO,
                              KR_SERIAL_FLOW_RTSCTS};
    ASSERT_KR_OK(port.setConfig(wanted));
#ifndef _WIN32
    // The master end reads the slave's settings.
    struct termios t;
    ASSERT_EQ(0, tcgetattr(peer.master, &t));
    EXPECT_EQ(static_cast<speed_t>(B19200), cfgetospeed(&t));
    // A pty keeps 8 bits without parity whatever it is told.
    EXPECT_EQ(static_cast<tcflag_t>(CSTOPB | CRTSCTS | CLOCAL | CREAD),
              t.c_cflag & (CSTOPB | CRTSCTS | CLOCAL | CREAD));
    EXPECT_EQ(0u, t.c_lflag & (ICANON | ECHO));

    const struct {
        const char* name;
        KR_SerialConfig config;
    } refused[] = {
            {"baud 12345", {12345}},
            {"1.5 stop bits", {9600, 8, KR_SERIAL_PARITY_NONE, KR_SERIAL_STOPBITS_ONE5}},
            {"DTR/DSR flow",
             {9600, 8, KR_SERIAL_PARITY_NONE, KR_SERIAL_STOPBITS_ONE, KR_SERIAL_FLOW_DTRDSR}}};

    for (const auto& row : refused) {
        SCOPED_TRACE(row.name);
        EXPECT_KR_STATUS(KR_RET_ERR_NSUP, port.setConfig(row.config));
        KR_SerialConfig now;
        ASSERT_KR_OK(port.getConfig(now));
        EXPECT_EQ(19200u, now.baudRate);
        ASSERT_EQ(0, tcgetattr(peer.master, &t));
        EXPECT_EQ(static_cast<speed_t>(B19200), cfgetospeed(&t));
    }
    unsigned int lines = 0;  // a pty has no modem lines
    EXPECT_KR_STATUS(KR_RET_ERR_NSUP, port.getModemLines(lines));
    EXPECT_KR_STATUS(KR_RET_ERR_NSUP, port.setDTR(1));
#endif
}

TEST_F(SerialPort, DeadlinesHoldAndPartialReadsCount) {
    char buffer[16];
    unsigned int got = 9;
    Clock::time_point start = Clock::now();
    EXPECT_KR_STATUS(KR_RET_FALSE, port.read(buffer, 10, got, 0));
    EXPECT_EQ(0u, got);
    EXPECT_LT(msSince(start), 500);
    peer.send("abcd");
    ASSERT_TRUE(waitFor([&] {
        unsigned int count = 0;
        return port.bytesAvailable(count) == KR_RET_TRUE && count == 4;
    }));
    start = Clock::now();
    EXPECT_KR_STATUS(KR_RET_FALSE, port.read(buffer, 10, got, 300));
    long long elapsed = msSince(start);
    EXPECT_EQ("abcd", std::string(buffer, got));
    EXPECT_GE(elapsed, 300);
    EXPECT_LT(elapsed, 800);
    peer.send("xyz");
    EXPECT_KR_STATUS(KR_RET_TRUE, port.read(buffer, 3, got, KR_SERIAL_TIMEOUT_INFINITE));
    EXPECT_EQ("xyz", std::string(buffer, got));
    EXPECT_KR_STATUS(KR_RET_TRUE, port.write("hello", 5, got, 1000));
    EXPECT_EQ(5u, got);
    EXPECT_EQ("hello", peer.receive(5, 2000));
}

TEST_F(SerialPort, SecondOpenIsRefusedUntilClosed) {
#ifdef _WIN32
    // Windows drivers refuse a second handle; Wine hands one out.
    if (GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr) {
        GTEST_SKIP() << "Wine shares its serial devices";
    }
#endif
    KR_SerialPort second;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, second.open(peer.port.c_str(), KR_SerialConfig()));
    EXPECT_KR_OK(port.close());
    EXPECT_KR_OK(second.open(peer.port.c_str(), KR_SerialConfig()));
}

TEST_F(SerialPort, SeededStreamArrivesByteForByte) {
    std::mt19937 random(20261124);
    std::string sent = randomBytes(random, 192 * 1024), received, echoed;
    for (size_t at = 0; at < sent.size();) {
        size_t chunk = std::min<size_t>(1 + random() % 2048, sent.size() - at);
        peer.send(sent.substr(at, chunk));
        at += chunk;
        if (random() % 16 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        while (received.size() < at) {
            char buffer[3000];
            unsigned int want = 1 + random() % sizeof buffer, got = 0;
            want = std::min<unsigned int>(want, static_cast<unsigned int>(at - received.size()));
            ASSERT_FALSE(krtest::failed(port.read(buffer, want, got, 2000)));
            ASSERT_GT(got, 0u);
            received.append(buffer, got);
            unsigned int written = 0;
            ASSERT_KR_OK(port.write(buffer, got, written, 2000));
            echoed += peer.receive(got, 2000);
        }
    }
    EXPECT_TRUE(sent == received);
    EXPECT_TRUE(sent == echoed);
}

TEST_F(SerialPort, EventsDeliverEveryByteInOrder) {
    Collected c;
    krtest::ReportCapture capture;
    ASSERT_KR_OK(port.startEvents(KR_SERIAL_EV_RXCHAR, collect, &c));
    EXPECT_TRUE(port.eventsRunning());
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, port.startEvents(KR_SERIAL_EV_RXCHAR, collect, &c));
    char buffer[4];
    unsigned int got = 0;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, port.read(buffer, 4, got, 0));  // the thread reads
    std::mt19937 random(7);
    std::string sent = randomBytes(random, 64 * 1024);
    for (size_t at = 0; at < sent.size(); at += 1024)
        peer.send(sent.substr(at, 1024));
    ASSERT_TRUE(waitFor([&] { return c.size() == sent.size(); }));
    EXPECT_TRUE(sent == c.bytes);
    EXPECT_EQ(KR_SERIAL_EV_RXCHAR, c.events);
    EXPECT_KR_OK(port.write("w", 1, got, 1000));  // the owner still writes
    EXPECT_EQ("w", peer.receive(1, 2000));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    Clock::time_point start = Clock::now();
    EXPECT_KR_OK(port.stopEvents());
    EXPECT_LT(msSince(start), 500);
    EXPECT_FALSE(port.eventsRunning());
    peer.send("r");
    EXPECT_KR_OK(port.read(buffer, 1, got, 2000));
}

TEST_F(SerialPort, CallbackEchoesStopsAndCannotClose) {
    Collected c;
    c.echoBack = c.stopInside = true;
    krtest::ReportCapture capture;
    ASSERT_KR_OK(port.startEvents(KR_SERIAL_EV_RXCHAR, collect, &c));
    KR_setUserError(42);
    peer.send("ping");
    EXPECT_EQ("ping", peer.receive(4, 2000));
    ASSERT_TRUE(waitFor([&] { return !port.eventsRunning(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(1, c.calls.load());  // the stop asked inside took effect after the callback
    EXPECT_EQ(KR_RET_TRUE, c.echo);
    EXPECT_EQ(KR_RET_TRUE, c.stop);
    EXPECT_EQ(KR_RET_ERR_CALL, c.close);
    EXPECT_EQ(42, KR_getUserError());  // the thread left the process-wide cells alone
    EXPECT_EQ("", capture.text());
    EXPECT_KR_OK(port.stopEvents());  // joins
    EXPECT_TRUE(port.isOpen());
    EXPECT_KR_OK(port.close());
}

TEST_F(SerialPort, PortDeletedInsideItsCallbackIsReleased) {
    port.close();
    KR_SerialPort* owned = new KR_SerialPort;
    ASSERT_KR_OK(owned->open(peer.port.c_str(), KR_SerialConfig()));
    Collected c;
    c.deleteInside = true;
    ASSERT_KR_OK(owned->startEvents(KR_SERIAL_EV_RXCHAR, collect, &c));
    peer.send("x");
    // The thread closes the device once the callback returns: it opens again.
    EXPECT_TRUE(waitFor([&] {
        return c.calls.load() == 1 &&
               port.open(peer.port.c_str(), KR_SerialConfig()) == KR_RET_TRUE;
    }));
}

TEST_F(SerialPort, AllocationFailuresLeaveNothingHalfDone) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    const std::string name = peer.port;
    krtest::forEachAllocationFailure(
            [&] {
                port.close();
                return port.open(name.c_str(), KR_SerialConfig());
            },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_FALSE(port.isOpen());
            });
    Collected c;
    krtest::forEachAllocationFailure(
            [&] {
                port.stopEvents();
                return port.startEvents(KR_SERIAL_EV_RXCHAR, collect, &c);
            },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_FALSE(port.eventsRunning());
            });
    EXPECT_TRUE(port.eventsRunning());
    KR_Array<KR_StringW> names;
    krtest::forEachAllocationFailure([&] { return KR_serialListPortsW(names); },
                                     [&](KR_RET_STATUS status, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                                         EXPECT_EQ(0u, names.numElems());
                                     });
}

#ifndef _WIN32
TEST_F(SerialPort, FarEndClosingEndsTheThread) {
    Collected c;
    ASSERT_KR_OK(port.startEvents(KR_SERIAL_EV_RXCHAR | KR_SERIAL_EV_CTS, collect, &c));
    peer.send("last");
    ASSERT_TRUE(waitFor([&] { return c.size() == 4; }));
    peer.hangUp();
    ASSERT_TRUE(waitFor([&] { return !port.eventsRunning(); }));
    EXPECT_EQ("last", c.bytes);
    EXPECT_TRUE(c.events & KR_SERIAL_EV_CLOSED);
    EXPECT_NE(0, c.osError);
    EXPECT_EQ(c.osError, port.getLastEventError());
    EXPECT_KR_OK(port.stopEvents());
    char buffer[1];
    unsigned int got = 0;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, port.read(buffer, 1, got, 100));
    EXPECT_EQ(0u, capture.located().find("ERROR: src/kr_serialport: line N: KR_SerialPort: read"));
}
#endif

TEST(SerialPortList, NamesAreSortedPortNames) {
    KR_Array<KR_String> names;
    KR_Array<KR_StringW> wide;
    ASSERT_KR_OK(KR_serialListPorts(names));
    ASSERT_KR_OK(KR_serialListPortsW(wide));
    ASSERT_EQ(names.numElems(), wide.numElems());
    for (unsigned int i = 0; i < names.numElems(); ++i) {
        std::string name = static_cast<const char*>(names[i]);
        SCOPED_TRACE(name);
#ifdef _WIN32
        EXPECT_EQ(0u, name.find("COM"));
#else
        EXPECT_EQ(0u, name.find("/dev/"));
#endif
        if (i > 0) {
            EXPECT_LT(std::string(static_cast<const char*>(names[i - 1])), name);
        }
    }
}
