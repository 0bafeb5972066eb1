// kr_reporter.h — status codes, the process-wide reporter and the message catalogue.
// Every operation of the library returns a KR_RET_STATUS and tells each failure to the registered
// reporter, which writes a located line to a C stream. Statuses 0 and 1 are the two answers of a
// successful operation; anything above 2 is a failure, passed upward unchanged. The reporting
// macros at the end are the library's own and not for host code.
#ifndef KRCORE_KR_REPORTER_H
#define KRCORE_KR_REPORTER_H

#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>

#include "kr_globals.h"

// Held in 32 bits on every target; values outside the enumerators may be stored and compared.
enum KR_RET_STATUS : int {
    KR_RET_FALSE = 0,
    KR_RET_TRUE = 1,
    KR_RET_ERR_ARG = 3,
    KR_RET_ERR_MEM = 4,
    KR_RET_ERR_FILE = 5,
    KR_RET_ERR_POBJ = 6,
    KR_RET_ERR_OBJ = 7,
    KR_RET_ERR_NSUP = 8,
    KR_RET_ERR_NIMP = 9,
    KR_RET_ERR_GEN = 11,
    KR_RET_ERR_CALL = 12,
    KR_RET_ERR_ILOCK = 13,
    KR_RET_ERR_USER = 15
};

// The last status code: set by KR_reportStatus (to the reported status) and by the error
// message functions (always to KR_RET_ERR_GEN); 1 at load and after KR_clearStatusCode.
extern KR_API KR_RET_STATUS KR_statusCode;

// KR_BaseReporter — the reporter interface. Each variadic operation gathers its arguments and
// calls the va_list form in the next slot, so a reporter overrides only the va_list forms (and
// brings the variadic ones back into scope with using-declarations). The file name is narrow in
// every operation. Beware that a single trailing char* argument of a variadic call selects the
// va_list overload on targets where va_list is char*: pass such arguments through the free
// functions (KR_reportErrorMsg, ...) instead.
class KR_API KR_BaseReporter {
public:
    KR_BaseReporter() {}

    KR_BaseReporter(const KR_BaseReporter&) {}

    KR_BaseReporter& operator=(const KR_BaseReporter&) { return *this; }

    virtual ~KR_BaseReporter();

    KR_RET_STATUS warning(
            const char* file, unsigned int line, const char* text, const char* format, ...);
    virtual KR_RET_STATUS warning(const char* file,
                                  unsigned int line,
                                  const char* text,
                                  const char* format,
                                  va_list args) = 0;
    KR_RET_STATUS warningW(
            const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...);
    virtual KR_RET_STATUS warningW(const char* file,
                                   unsigned int line,
                                   const wchar_t* text,
                                   const wchar_t* format,
                                   va_list args) = 0;
    KR_RET_STATUS error(
            const char* file, unsigned int line, const char* text, const char* format, ...);
    virtual KR_RET_STATUS error(const char* file,
                                unsigned int line,
                                const char* text,
                                const char* format,
                                va_list args) = 0;
    KR_RET_STATUS errorW(
            const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...);
    virtual KR_RET_STATUS errorW(const char* file,
                                 unsigned int line,
                                 const wchar_t* text,
                                 const wchar_t* format,
                                 va_list args) = 0;
    KR_RET_STATUS message(
            const char* file, unsigned int line, const char* text, const char* format, ...);
    virtual KR_RET_STATUS message(const char* file,
                                  unsigned int line,
                                  const char* text,
                                  const char* format,
                                  va_list args) = 0;
    KR_RET_STATUS messageW(
            const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...);
    virtual KR_RET_STATUS messageW(const char* file,
                                   unsigned int line,
                                   const wchar_t* text,
                                   const wchar_t* format,
                                   va_list args) = 0;
    // KR_RET_ERR_ARG for a null format; otherwise the va_list form's answer.
    KR_RET_STATUS print(const char* title, const char* format, ...);
    virtual KR_RET_STATUS print(const char* title, const char* format, va_list args) = 0;
    KR_RET_STATUS printW(const wchar_t* title, const wchar_t* format, ...);
    virtual KR_RET_STATUS printW(const wchar_t* title, const wchar_t* format, va_list args) = 0;
    virtual KR_RET_STATUS reportStat(const char* file,
                                     unsigned int line,
                                     KR_RET_STATUS status,
                                     const char* text) = 0;
    virtual KR_RET_STATUS reportStatW(const char* file,
                                      unsigned int line,
                                      KR_RET_STATUS status,
                                      const wchar_t* text) = 0;
};

// KR_Reporter — the library's reporter: every line goes to one C stream (standard error for the
// default constructor). A report is the prefix ("WARNING: ", "ERROR: " or none), the location
// line "file: line N: text" and then the formatted message, to which no newline is added.
// Wide reports go to the same stream as narrow ones and interleave with them. Copying a reporter
// gives a reporter with no stream; assignment copies the stream pointer. Called on a null object,
// every operation writes a diagnostic to standard error and answers KR_RET_ERR_GEN.
class KR_API KR_Reporter : public KR_BaseReporter {
public:
    KR_Reporter();
    ~KR_Reporter() override;
    KR_Reporter& operator=(const KR_Reporter& other);

    using KR_BaseReporter::error;
    using KR_BaseReporter::errorW;
    using KR_BaseReporter::message;
    using KR_BaseReporter::messageW;
    using KR_BaseReporter::print;
    using KR_BaseReporter::printW;
    using KR_BaseReporter::warning;
    using KR_BaseReporter::warningW;

    KR_RET_STATUS warning(const char* file,
                          unsigned int line,
                          const char* text,
                          const char* format,
                          va_list args) override;
    KR_RET_STATUS warningW(const char* file,
                           unsigned int line,
                           const wchar_t* text,
                           const wchar_t* format,
                           va_list args) override;
    KR_RET_STATUS error(const char* file,
                        unsigned int line,
                        const char* text,
                        const char* format,
                        va_list args) override;
    KR_RET_STATUS errorW(const char* file,
                         unsigned int line,
                         const wchar_t* text,
                         const wchar_t* format,
                         va_list args) override;
    KR_RET_STATUS message(const char* file,
                          unsigned int line,
                          const char* text,
                          const char* format,
                          va_list args) override;
    KR_RET_STATUS messageW(const char* file,
                           unsigned int line,
                           const wchar_t* text,
                           const wchar_t* format,
                           va_list args) override;
    // Formats onto the stream; the title is not used. KR_RET_ERR_GEN when formatting fails.
    KR_RET_STATUS print(const char* title, const char* format, va_list args) override;
    KR_RET_STATUS printW(const wchar_t* title, const wchar_t* format, va_list args) override;
    // The location line, then the status's text ("Memory error" and an empty line, ...); nothing
    // after the location line for statuses below 3, above 15, and for 10 and 14.
    KR_RET_STATUS reportStat(const char* file,
                             unsigned int line,
                             KR_RET_STATUS status,
                             const char* text) override;
    KR_RET_STATUS reportStatW(const char* file,
                              unsigned int line,
                              KR_RET_STATUS status,
                              const wchar_t* text) override;

protected:
    // Copying is not part of the interface; a copy has no stream.
    KR_Reporter(const KR_Reporter& other);

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    FILE* stream_;  // where every line goes; null only in a copy
};

// Registers the reporter for all later reports. A null reporter is reported (KR_RET_ERR_ARG)
// and the registered one stays. The caller keeps ownership of the reporter.
extern "C" KR_API KR_RET_STATUS KR_registerReporter(KR_BaseReporter* reporter);
// Sets the last status code, then has the reporter write the location line and the status text.
// KR_RET_ERR_GEN when no reporter is registered, else KR_RET_TRUE.
extern "C" KR_API KR_RET_STATUS KR_reportStatus(KR_RET_STATUS status,
                                                const char* file,
                                                unsigned int line);
// Sets the last status code to KR_RET_ERR_GEN whatever the error, then reports through error().
extern "C" KR_API KR_RET_STATUS
KR_reportErrorMsg(const char* file, unsigned int line, const char* text, const char* format, ...);
extern "C" KR_API KR_RET_STATUS KR_reportErrorMsgW(
        const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...);
// Leaves the last status code alone.
extern "C" KR_API KR_RET_STATUS
KR_reportWarningMsg(const char* file, unsigned int line, const char* text, const char* format, ...);
extern "C" KR_API KR_RET_STATUS KR_reportWarningMsgW(
        const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...);
// Formatted output through the reporter's print(); the format must not be null.
extern "C" KR_API KR_RET_STATUS KR_mesg(const char* title, const char* format, ...);
extern "C" KR_API KR_RET_STATUS KR_mesgW(const wchar_t* title, const wchar_t* format, ...);
extern "C" KR_API KR_RET_STATUS KR_getStatusCode();
// Resets the last status code to KR_RET_TRUE (1), not to 0.
extern "C" KR_API void KR_clearStatusCode();
extern "C" KR_API void KR_setUserError(int error);
extern "C" KR_API int KR_getUserError();
// Text of catalogue entry id of group (0..3); null for an unknown group or id. The texts are
// printf formats for KR_reportErrorMsg.
extern "C" KR_API const char* KR_msg(unsigned int group, unsigned int id);
// Sorts the catalogue by group key and entry identifier; called once by KR_init.
extern "C" KR_API KR_RET_STATUS KR_msgInit();

// Prints "Korvane return code: KR_RET_ERR_MEM(4)" and the like. Print only enumerated values:
// for any other value the printer calls itself without end.
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_RET_STATUS status);

// --- What the library's reports and its template headers call (not for host code) ---
namespace krInternal {
// Reports status at file and line, and yields status.
KR_API KR_RET_STATUS failAt(KR_RET_STATUS status, const char* file, unsigned int line);

// The user error cell behind KR_setUserError. The container templates clear it inline on every
// operation, which keeps a cursor walk free of calls into the library. It is wider than the int
// it holds so that its type differs from every 32-bit element type: a store into a container of
// unsigned int then cannot change it, and the compiler keeps a loop's container fields in
// registers instead of reloading them after every element written.
extern KR_API long long userError;

inline void clearUserError() {
    userError = 0;
}
}  // namespace krInternal

#endif  // KRCORE_KR_REPORTER_H
