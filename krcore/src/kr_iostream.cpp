// kr_iostream.cpp — the output stream.
#include "kr_iostream.h"

#include <stdarg.h>
#include <stdio.h>

#include <iostream>

#include "kr_platform.h"

#define KRI_UNIT "src/kr_iostream"

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
    if (handler_ != nullptr) {
        handler_(const_cast<char*>(text));
    } else if (text != nullptr) {
        // A null text would put std::cout into its failed state and silence all later output.
        std::cout << text;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(char* text) {
    return *this << static_cast<const char*>(text);
}

KR_OStream& KR_OStream::operator<<(const unsigned char* text) {
    if (handler_ != nullptr) {
        handler_(reinterpret_cast<char*>(const_cast<unsigned char*>(text)));
    } else if (text != nullptr) {
        std::cout << text;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(const signed char* text) {
    if (handler_ != nullptr) {
        handler_(reinterpret_cast<char*>(const_cast<signed char*>(text)));
    } else if (text != nullptr) {
        std::cout << text;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(char c) {
    if (handler_ != nullptr) {
        char text[2] = {c, '\0'};
        handler_(text);
    } else {
        std::cout << c;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(unsigned char c) {
    if (handler_ != nullptr) {
        char text[2] = {static_cast<char>(c), '\0'};
        handler_(text);
    } else {
        std::cout << c;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(signed char c) {
    if (handler_ != nullptr) {
        char text[2] = {static_cast<char>(c), '\0'};
        handler_(text);
    } else {
        std::cout << c;
    }
    return *this;
}

void KR_OStream::putNumber(const char* format, ...) {
    char text[64];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    handler_(text);
}

KR_OStream& KR_OStream::operator<<(short value) {
    if (handler_ != nullptr) {
        putNumber("%d", value);
    } else {
        std::cout << value;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(unsigned short value) {
    if (handler_ != nullptr) {
        putNumber("%u", value);
    } else {
        std::cout << value;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(int value) {
    if (handler_ != nullptr) {
        putNumber("%d", value);
    } else {
        std::cout << value;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(unsigned int value) {
    if (handler_ != nullptr) {
        putNumber("%u", value);
    } else {
        std::cout << value;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(long value) {
    if (handler_ != nullptr) {
        putNumber("%ld", value);
    } else {
        std::cout << value;
    }
    return *this;
}

// Through a handler an unsigned long prints with the signed conversion, as it always has:
// ULONG_MAX reaches the handler as -1. Hosts rely on that text.
KR_OStream& KR_OStream::operator<<(unsigned long value) {
    if (handler_ != nullptr) {
        putNumber("%ld", static_cast<long>(value));
    } else {
        std::cout << value;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(float value) {
    if (handler_ != nullptr) {
        putNumber("%f", static_cast<double>(value));
    } else {
        std::cout << value;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(double value) {
    if (handler_ != nullptr) {
        putNumber("%lf", value);
    } else {
        std::cout << value;
    }
    return *this;
}

// long double is formatted as a double: it has double's width on the Windows targets, and the
// handler sees the same text on every platform.
KR_OStream& KR_OStream::operator<<(long double value) {
    if (handler_ != nullptr) {
        putNumber("%lf", static_cast<double>(value));
    } else {
        std::cout << value;
    }
    return *this;
}

KR_OStream& KR_OStream::operator<<(const void* pointer) {
    if (handler_ != nullptr) {
        putNumber("%p", pointer);
    } else {
        std::cout << pointer;
    }
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
