// demo_host.cpp — a tour of the library as a host application uses it.
// Starts the library, registers the host's own reporter, provokes a located error report, prints
// statuses through the library's stream with and without a console handler, compares versions
// and draws a colour wheel into a BMP file, then takes a plug-in module through the public
// object model (demo_plugin.cpp).
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <iostream>

#include "krcore.h"

#include "demo.h"

namespace {

// The host's reporter writes to standard output, so the whole tour reads as one stream.
class HostReporter : public KR_Reporter {
public:
    HostReporter() { stream_ = stdout; }
};

int handledPieces = 0;

// A console handler as a GUI host would install one: it receives every piece of text.
KR_RET_STATUS consoleHandler(char* text) {
    ++handledPieces;
    printf("[console] %s\n", text ? text : "(null)");
    return KR_RET_TRUE;
}

}  // namespace

int main(int argc, char** argv) {
    if (KR_init() > 2) {  // 0..2 are answers; failures start at 3
        fprintf(stderr, "KR_init failed\n");
        return 1;
    }
    printf("krcore %s started\n", KR_getKorvaneVersion());

    heading("the host's own reporter");
    HostReporter reporter;
    KR_RET_STATUS status = KR_registerReporter(&reporter);
    printf("KR_registerReporter(&reporter) answered %d\n", status);

    heading("a located error report");
    fflush(stdout);
    status = KR_registerReporter(nullptr);
    fflush(stdout);
    printf("KR_registerReporter(nullptr) answered %d; last status code %d\n", status,
           KR_getStatusCode());
    KR_Version version(1, 2, 3);
    unsigned int used = 7;
    fflush(stdout);
    status = version.pack(version, nullptr, used, KR_STORAGE_BINARY);
    fflush(stdout);
    printf("KR_Version::pack(null buffer) answered %d, used %u\n", status, used);
    // Hosts report their own failures the same way, narrow or wide.
    fflush(stdout);
    KR_reportErrorMsg("demo_host", __LINE__, "loading settings", "%s not found\n", "host.xml");
    KR_reportWarningMsgW("demo_host", __LINE__, L"wide report", L"%ls\n",
                         L"file names stay narrow");
    fflush(stdout);

    heading("a status through the stream, no handler");
    KR_OStream& out = *KR_coutPtr;
    out << KR_RET_ERR_MEM << "\n";
    out << "pi is about " << 3.14159 << ", ULONG_MAX is " << ULONG_MAX << "\n";
    std::cout.flush();

    heading("the same through a console handler");
    out.setConsoleHandler(consoleHandler);
    out << KR_RET_ERR_MEM;
    out << 1.5f;
    out << static_cast<unsigned long>(-1);
    out.setConsoleHandler(nullptr);
    printf("the handler received %d pieces\n", handledPieces);

    heading("versions");
    KR_Version library(KR_getKorvaneVersion());
    KR_Version data("1.10");
    char* libraryText = library.version2Str();
    char* dataText = data.version2Str();
    printf("library %s, data %s: data is %s than the library\n", libraryText, dataText,
           data > library ? "newer" : (data == library ? "no newer" : "older"));
    printf("1.2.3 < 1.10.0: %s\n", KR_Version(1, 2, 3) < KR_Version(1, 10, 0) ? "true" : "false");
    free(libraryText);
    free(dataText);

    heading("strings and containers");
    KR_Array<KR_String> words;
    KR_splitString("undo, redo,  repeat", " ,", words);
    words.setCurFirst();
    KR_String* word = nullptr;
    while (!words.curIsNull() && words.getCurElem(&word) <= 2) {
        out << "[" << *word << "] ";
        words.setCurNext();
    }
    char* replaced = nullptr;
    if (KR_strSubstitute(&replaced, "a-b-c", "+", "-", 1) == KR_RET_TRUE) {
        out << "\n" << replaced << "\n";
        free(replaced);
    }
    std::cout.flush();

    heading("a version through a text file");
    KR_String path;
    if (KR_fileGetTempName(path, nullptr, "krdemo") <= 2) {
        KR_FileAscii file(static_cast<const char*>(path), KR_FILE_MODE_WRITE);
        KR_Version format(KR_getKorvaneVersion());
        KR_Version(1, 2, 0).persist(format, file);
        file.close();
        KR_FileAscii in(static_cast<const char*>(path), KR_FILE_MODE_READ);
        KR_Version back;
        back.restore(format, in);
        in.close();
        printf("wrote 1.2.0, read back %u.%u.%u\n", back.getMajor(), back.getMinor(),
               back.getPatch());
        KR_fileRemove(static_cast<const char*>(path));
    }

    heading("a colour wheel");
    // Hue runs around the centre and saturation outwards, at full value; the corners stay
    // transparent. The file stays for the reader to open.
    const unsigned int side = 128;
    const double radius = side / 2.0 - 2;
    KR_Bitmap wheel(side, side);
    for (unsigned int y = 0; y < side; ++y) {
        for (unsigned int x = 0; x < side; ++x) {
            double dx = x + 0.5 - side / 2.0, dy = side / 2.0 - (y + 0.5);
            double r = sqrt(dx * dx + dy * dy) / radius;
            if (r > 1.0) continue;
            KR_RGBA colour;
            KR_colorConvert(KR_HSVA(atan2(dy, dx) / (2 * 3.14159265358979323846), r, 1.0), colour);
            wheel.setPixel(x, y, colour);
        }
    }
    KR_String wheelPath;
    if (KR_fileGetTempDir(wheelPath) <= 2) {
        wheelPath += "/krcore_colour_wheel.bmp";
        status = wheel.save(static_cast<const char*>(wheelPath), 32);
        printf("wrote a %u x %u colour wheel (%s): %s\n", side, side,
               status == KR_RET_TRUE ? "saved" : "failed", static_cast<const char*>(wheelPath));
    }

    // The module to load: the command line's, else the sample module built beside this host.
    int failed = pluginTour(argc > 1 ? argv[1] : KRDEMO_SAMPLE_MODULE);

    heading("shutting down");
    KR_registerReporter(KR_defReporter);
    KR_close();
    printf("krcore closed\n");
    return failed;
}
