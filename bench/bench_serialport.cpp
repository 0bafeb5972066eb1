// bench_serialport.cpp — the serial port's event thread against libserialport's blocking read and
// asio's serial_port::async_read_some, each on the slave end of its own pty pair, the benchmark
// driving the master end: a one-byte echo round trip (median and 99th percentile) and 1 MiB of
// bulk input. BM_IdleWakeups counts the context switches of an idle event thread over 1 s.
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

#include "asio.hpp"
#include "libserialport.h"

// libserialport reads the modem lines when it opens a port, and a pty has none: for this
// benchmark a refused modem-line ioctl answers "no line set" instead. The library under test
// asks for no modem line here.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    using Ioctl = int (*)(int, unsigned long, void*);
    static const Ioctl real = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
    va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    int result = real(fd, request, argument);
    if (result != 0 && errno == ENOTTY &&
        (request == TIOCMGET || request == TIOCMSET || request == TIOCMBIS ||
         request == TIOCMBIC)) {
        if (request == TIOCMGET) *static_cast<int*>(argument) = 0;
        return 0;
    }
    return result;
}

namespace {

using Clock = std::chrono::steady_clock;

const size_t kBulkSize = 1u << 20;
const size_t kChunk = 4096;

// A pty pair; the benchmark writes and reads the master, the port under test opens the slave.
struct Pty {
    Pty() {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) abort();
        slave = ptsname(master);
        struct termios t;
        tcgetattr(master, &t);
        cfmakeraw(&t);
        tcsetattr(master, TCSANOW, &t);
    }

    ~Pty() { close(master); }

    void writeAll(const char* data, size_t size) {
        while (size > 0) {
            ssize_t n = write(master, data, size);
            if (n <= 0) abort();
            data += n;
            size -= static_cast<size_t>(n);
        }
    }

    void readAll(char* data, size_t size) {
        while (size > 0) {
            ssize_t n = read(master, data, size);
            if (n <= 0) abort();
            data += n;
            size -= static_cast<size_t>(n);
        }
    }

    int master;
    std::string slave;
};

// Each peer opens the slave and either echoes what arrives (echo) or counts it (received).
struct KrcorePeer {
    KrcorePeer(const std::string& slave, bool echo) : echo_(echo) {
        if (port_.open(slave.c_str(), KR_SerialConfig()) != KR_RET_TRUE ||
            port_.startEvents(KR_SERIAL_EV_RXCHAR, onEvent, this) != KR_RET_TRUE) {
            abort();
        }
    }

    ~KrcorePeer() { port_.close(); }

    static void onEvent(KR_SerialPort* port, const KR_SerialEvent* event, void* user) {
        KrcorePeer& self = *static_cast<KrcorePeer*>(user);
        if (self.echo_) {
            unsigned int written = 0;
            port->write(event->data, event->size, written, 1000);
        } else {
            self.received.fetch_add(event->size, std::memory_order_release);
        }
    }

    std::atomic<size_t> received{0};

private:
    bool echo_;
    KR_SerialPort port_;
};

struct LibserialportPeer {
    LibserialportPeer(const std::string& slave, bool echo) : echo_(echo) {
        // libserialport takes only names that it finds under /sys/class/tty, and a pty is not
        // there. A name that leads from /dev and from /sys/class/tty alike to a link to the
        // slave passes its check and opens the slave.
        link_ = "/tmp/krbench-tty-" + std::to_string(getpid());
        unlink(link_.c_str());
        if (symlink(slave.c_str(), link_.c_str()) != 0) abort();
        std::string name = "/dev/../../.." + link_;
        if (sp_get_port_by_name(name.c_str(), &port_) != SP_OK ||
            sp_open(port_, SP_MODE_READ_WRITE) != SP_OK) {
            abort();
        }
        sp_set_baudrate(port_, 9600);
        thread_ = std::thread([this] { run(); });
    }

    ~LibserialportPeer() {
        stop_ = true;
        thread_.join();
        sp_close(port_);
        sp_free_port(port_);
        unlink(link_.c_str());
    }

    void run() {
        std::vector<char> buffer(kChunk);
        while (!stop_) {
            // One byte for the echo; whole chunks for the bulk input.
            int n = sp_blocking_read(port_, buffer.data(), echo_ ? 1 : kChunk, 50);
            if (n <= 0) continue;
            if (echo_) {
                sp_blocking_write(port_, buffer.data(), static_cast<size_t>(n), 1000);
            } else {
                received.fetch_add(static_cast<size_t>(n), std::memory_order_release);
            }
        }
    }

    std::atomic<size_t> received{0};

private:
    bool echo_;
    std::atomic<bool> stop_{false};
    std::string link_;
    sp_port* port_ = nullptr;
    std::thread thread_;
};

struct AsioPeer {
    AsioPeer(const std::string& slave, bool echo) : echo_(echo), port_(context_, slave) {
        arm();
        thread_ = std::thread([this] { context_.run(); });
    }

    ~AsioPeer() {
        context_.stop();
        thread_.join();
    }

    void arm() {
        port_.async_read_some(asio::buffer(buffer_),
                              [this](const asio::error_code& error, size_t n) {
                                  if (error) return;
                                  if (echo_) {
                                      asio::write(port_, asio::buffer(buffer_, n));
                                  } else {
                                      received.fetch_add(n, std::memory_order_release);
                                  }
                                  arm();
                              });
    }

    std::atomic<size_t> received{0};

private:
    bool echo_;
    asio::io_context context_;
    asio::serial_port port_;
    char buffer_[kChunk];
    std::thread thread_;
};

template <class Peer>
void BM_EchoRoundTrip(benchmark::State& state) {
    Pty pty;
    Peer peer(pty.slave, true);
    std::vector<double> micros;
    char byte = 'e';
    pty.writeAll(&byte, 1);  // warm up the path once
    pty.readAll(&byte, 1);
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        pty.writeAll(&byte, 1);
        pty.readAll(&byte, 1);
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        ++byte;
    }
    std::sort(micros.begin(), micros.end());
    state.counters["p50_us"] = micros[micros.size() / 2];
    state.counters["p99_us"] = micros[micros.size() * 99 / 100];
}

template <class Peer>
void BM_BulkInput(benchmark::State& state) {
    Pty pty;
    Peer peer(pty.slave, false);
    std::string data(kBulkSize, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 31 + 7);
    size_t expected = 0;
    for (auto _ : state) {
        pty.writeAll(data.data(), data.size());
        expected += data.size();
        while (peer.received.load(std::memory_order_acquire) < expected) {
            std::this_thread::yield();
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(expected));
}

// Voluntary and involuntary context switches of every thread of the process.
long long contextSwitches() {
    long long total = 0;
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return -1;
    while (struct dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        std::string path = std::string("/proc/self/task/") + entry->d_name + "/status";
        FILE* file = fopen(path.c_str(), "r");
        if (file == nullptr) continue;
        char line[256];
        long long value = 0;
        while (fgets(line, sizeof line, file) != nullptr) {
            if (sscanf(line, "voluntary_ctxt_switches: %lld", &value) == 1 ||
                sscanf(line, "nonvoluntary_ctxt_switches: %lld", &value) == 1) {
                total += value;
            }
        }
        fclose(file);
    }
    closedir(dir);
    return total;
}

// An idle event thread (no bytes, no modem events in its mask) against an idle process: the
// difference is the thread's own wake-ups in one second.
void BM_IdleWakeups(benchmark::State& state) {
    Pty pty;
    KrcorePeer peer(pty.slave, false);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    long long switches = 0;
    for (auto _ : state) {
        long long before = contextSwitches();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        switches = contextSwitches() - before - 1;  // the sleep of this thread itself
    }
    state.counters["wakeups_per_s"] = static_cast<double>(switches);
}

}  // namespace

BENCHMARK_TEMPLATE(BM_EchoRoundTrip, KrcorePeer)->Iterations(20000)->UseRealTime();
BENCHMARK_TEMPLATE(BM_EchoRoundTrip, LibserialportPeer)->Iterations(20000)->UseRealTime();
BENCHMARK_TEMPLATE(BM_EchoRoundTrip, AsioPeer)->Iterations(20000)->UseRealTime();
BENCHMARK_TEMPLATE(BM_BulkInput, KrcorePeer)->Iterations(50)->UseRealTime();
BENCHMARK_TEMPLATE(BM_BulkInput, LibserialportPeer)->Iterations(50)->UseRealTime();
BENCHMARK_TEMPLATE(BM_BulkInput, AsioPeer)->Iterations(50)->UseRealTime();
BENCHMARK(BM_IdleWakeups)->Iterations(1)->UseRealTime();

BENCHMARK_MAIN();
