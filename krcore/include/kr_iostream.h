// kr_iostream.h — the library's output stream.
// KR_OStream hands each piece of text to a console handler that the host installs, or, when
// none is installed, writes it to standard output. Every framework type prints through the
// overloads here, so a handler catches all of them. One stream is made by KR_init (KR_coutPtr).
#ifndef KRCORE_KR_IOSTREAM_H
#define KRCORE_KR_IOSTREAM_H

#include <wchar.h>

#include "kr_base.h"
#include "kr_reporter.h"

typedef KR_RET_STATUS (*KR_ConsoleHandler)(char* text);
typedef KR_RET_STATUS (*KR_ConsoleHandlerW)(wchar_t* text);

// KR_OStream — output with optional narrow and wide console handlers (their results are ignored).
// Through a handler numbers print in C printf style ("%d", "%ld", six decimals for "%f") from a
// stack buffer, so printing allocates nothing; an unsigned long goes through "%ld" and so prints
// ULONG_MAX as -1. Without a handler narrow text goes to std::cout and wide text to std::wcout
// (on POSIX converted to the locale's multibyte text and written to std::cout, so that narrow
// and wide output interleave). A null text prints nothing without a handler and reaches the
// handler as null. The overloads never check the initialised flag.
class KR_API KR_OStream : public KR_KorvaneClass {
public:
    KR_OStream();
    ~KR_OStream() override;
    // Member-wise: the flag and both handlers.
    KR_OStream& operator=(const KR_OStream& other);

    // Null sends narrow text to standard output again.
    KR_RET_STATUS setConsoleHandler(KR_ConsoleHandler handler);

    KR_ConsoleHandler getConsoleHandler() { return handler_; }

    KR_RET_STATUS setConsoleHandlerW(KR_ConsoleHandlerW handler);

    KR_ConsoleHandlerW getConsoleHandlerW() { return handlerW_; }

    unsigned char objIsEnabled() { return initialised_; }

    KR_OStream& operator<<(const char* text);
    KR_OStream& operator<<(char* text);
    KR_OStream& operator<<(const unsigned char* text);
    KR_OStream& operator<<(const signed char* text);
    KR_OStream& operator<<(char c);
    KR_OStream& operator<<(unsigned char c);
    KR_OStream& operator<<(signed char c);
    KR_OStream& operator<<(short value);
    KR_OStream& operator<<(unsigned short value);
    KR_OStream& operator<<(int value);
    KR_OStream& operator<<(unsigned int value);
    KR_OStream& operator<<(long value);
    KR_OStream& operator<<(unsigned long value);
    KR_OStream& operator<<(float value);
    KR_OStream& operator<<(double value);
    KR_OStream& operator<<(long double value);
    KR_OStream& operator<<(const void* pointer);
    KR_OStream& operator<<(wchar_t c);
    KR_OStream& operator<<(const wchar_t* text);
    KR_OStream& operator<<(wchar_t* text);

private:
    // Copying a stream is not supported: the copy starts usable with no handlers, after a
    // KR_RET_ERR_NSUP report (KR_RET_ERR_POBJ, and not usable, for a source not initialised).
    KR_OStream(const KR_OStream& other);

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    unsigned char initialised_;
    KR_ConsoleHandler handler_;    // null: narrow text to std::cout
    KR_ConsoleHandlerW handlerW_;  // null: wide text to std::wcout
};

#endif  // KRCORE_KR_IOSTREAM_H
