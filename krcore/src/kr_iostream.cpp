// kr_iostream.cpp — the output stream.
#include "kr_iostream.h"

#include <stdio.h>

#include <iostream>

#include "kr_platform.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_iostream"

namespace {

// Through a handler a number is formatted printf-style on the stack (nothing is allocated);
// without one it goes to std::cout in the standard inserter's style.
template <class Value, class Formatted>
void putNumber(KR_ConsoleHandler handler, const char* format, Value value, Formatted formatted) {
    if (handler == nullptr) {
        std::cout << value;
        return;
    }
    char text[64];
    snprintf(text, sizeof text, format, formatted);
    handler(text);
}

// A single character: a two-character buffer for the handler, else the standard inserter.
template <class Char>
void putChar(KR_ConsoleHandler handler, Char c) {
    if (handler == nullptr) {
        std::cout << c;
        return;
    }
    char text[2] = {static_cast<char>(c), '\0'};
    handler(text);
}

// A text pointer: handed to the handler as it is; without one a null text prints nothing, since
// it would put std::cout into its failed state and silence all later output.
template <class Char>
void putText(KR_ConsoleHandler handler, const Char* text) {
    if (handler != nullptr) {
        handler(reinterpret_cast<char*>(const_cast<Char*>(text)));
    } else if (text != nullptr) {
        std::cout << text;
    }
}

}  // namespace

// --- KR_OStream ---

KR_OStream::KR_OStream() {
    initDataMembers();
}

KR_OStream::KR_OStream(const KR_OStream& other) : KR_KorvaneClass(other) {
    KR_setUserError(0);
    if (&other == this) return;
    initDataMembers();
    if (!other.initialised_) {
        cleanupDataMembers();
        KRI_FAIL(KR_RET_ERR_POBJ);
        return;
    }
    KRI_FAIL(KR_RET_ERR_NSUP);
}

KR_OStream::~KR_OStream() {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return;
    }
    cleanupDataMembers();
}

KR_OStream& KR_OStream::operator=(const KR_OStream& other) {
    initialised_ = other.initialised_;
    handler_ = other.handler_;
    handlerW_ = other.handlerW_;
    return *this;
}

KR_RET_STATUS KR_OStream::setConsoleHandler(KR_ConsoleHandler handler) {
    KR_setUserError(0);
    handler_ = handler;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_OStream::setConsoleHandlerW(KR_ConsoleHandlerW handler) {
    KR_setUserError(0);
    handlerW_ = handler;
    return KR_RET_TRUE;
}

KR_OStream& KR_OStream::operator<<(const char* text) {
    putText(handler_, text);
    return *this;
}

KR_OStream& KR_OStream::operator<<(char* text) {
    return *this << static_cast<const char*>(text);
}

KR_OStream& KR_OStream::operator<<(const unsigned char* text) {
    putText(handler_, text);
    return *this;
}

KR_OStream& KR_OStream::operator<<(const signed char* text) {
    putText(handler_, text);
    return *this;
}

KR_OStream& KR_OStream::operator<<(char c) {
    putChar(handler_, c);
    return *this;
}

KR_OStream& KR_OStream::operator<<(unsigned char c) {
    putChar(handler_, c);
    return *this;
}

KR_OStream& KR_OStream::operator<<(signed char c) {
    putChar(handler_, c);
    return *this;
}

KR_OStream& KR_OStream::operator<<(short value) {
    putNumber(handler_, "%d", value, static_cast<int>(value));
    return *this;
}

KR_OStream& KR_OStream::operator<<(unsigned short value) {
    putNumber(handler_, "%u", value, static_cast<unsigned int>(value));
    return *this;
}

KR_OStream& KR_OStream::operator<<(int value) {
    putNumber(handler_, "%d", value, value);
    return *this;
}

KR_OStream& KR_OStream::operator<<(unsigned int value) {
    putNumber(handler_, "%u", value, value);
    return *this;
}

KR_OStream& KR_OStream::operator<<(long value) {
    putNumber(handler_, "%ld", value, value);
    return *this;
}

// Through a handler an unsigned long prints with the signed conversion, as it always has:
// ULONG_MAX reaches the handler as -1. Hosts rely on that text.
KR_OStream& KR_OStream::operator<<(unsigned long value) {
    putNumber(handler_, "%ld", value, static_cast<long>(value));
    return *this;
}

KR_OStream& KR_OStream::operator<<(float value) {
    putNumber(handler_, "%f", value, static_cast<double>(value));
    return *this;
}

KR_OStream& KR_OStream::operator<<(double value) {
    putNumber(handler_, "%lf", value, value);
    return *this;
}

// long double is formatted as a double: it has double's width on the Windows targets, and the
// handler sees the same text on every platform.
KR_OStream& KR_OStream::operator<<(long double value) {
    putNumber(handler_, "%lf", value, static_cast<double>(value));
    return *this;
}

KR_OStream& KR_OStream::operator<<(const void* value) {
    putNumber(handler_, "%p", value, value);
    return *this;
}

KR_OStream& KR_OStream::operator<<(wchar_t c) {
    if (handlerW_ != nullptr) {
        wchar_t text[2] = {c, L'\0'};
        handlerW_(text);
    } else {
        krPlatform::coutWide(c);
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(const wchar_t* text) {
    if (handlerW_ != nullptr) {
        handlerW_(const_cast<wchar_t*>(text));
    } else {
        krPlatform::coutWide(text);
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(wchar_t* text) {
    return *this << static_cast<const wchar_t*>(text);
}

KR_RET_STATUS KR_OStream::initDataMembers() {
    handler_ = nullptr;
    handlerW_ = nullptr;
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_OStream::cleanupDataMembers() {
    initialised_ = 0;
    return KR_RET_TRUE;
}
