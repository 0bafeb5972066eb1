// test_image.cpp — colour conversions against Python's colorsys and their edges; bitmaps against
// the pixels that Pillow, netpbm and stb_image decode from the same files, written bytes against
// committed files, and damaged input refused before anything is allocated.
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

const std::string kData = KR_TEST_DATA_DIR;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}

void put32(std::string& b, size_t at, unsigned int v) {
    for (int k = 0; k < 4; ++k)
        b[at + k] = static_cast<char>(v >> (8 * k));
}

std::string pixelsOf(KR_Bitmap& bmp) {
    const char* p = reinterpret_cast<const char*>(bmp.getPixels());
    return p == nullptr ? std::string() : std::string(p, bmp.getWidth() * bmp.getHeight() * 4);
}

// The same deterministic picture for every build, alpha included.
KR_Bitmap picture(unsigned int w, unsigned int h) {
    KR_Bitmap bmp(w, h);
    unsigned char* p = bmp.getPixels();
    for (unsigned int i = 0; i < w * h * 4; ++i)
        p[i] = static_cast<unsigned char>(i * 37 + w);
    return bmp;
}

template <class A, class B>
void expectAlphaCarried() {
    A in;
    in.a = 0.3;
    B out;
    KR_colorConvert(in, out);
    EXPECT_EQ(0.3, out.a);
}

template <class A>
void expectAlphaToAll() {
    expectAlphaCarried<A, KR_RGBA>();
    expectAlphaCarried<A, KR_CMYA>();
    expectAlphaCarried<A, KR_YIQA>();
    expectAlphaCarried<A, KR_HSVA>();
    expectAlphaCarried<A, KR_HLSA>();
}

}  // namespace

TEST(ColourGolden, ConversionsMatchColorsys) {
    std::ifstream in(kData + "/colour_golden.txt");
    ASSERT_TRUE(in.good());
    std::string line;
    int rows = 0;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string kind;
        double v[15];
        fields >> kind;
        int n = kind == "from" ? 12 : 6;
        for (int k = 0; k < n; ++k)
            fields >> v[k];
        SCOPED_TRACE(line);
        ++rows;
        if (kind == "from") {
            KR_RGBA rgb(v[0], v[1], v[2]);
            KR_YIQA yiq;
            KR_HSVA hsv;
            KR_HLSA hls;
            KR_colorConvert(rgb, yiq);
            KR_colorConvert(rgb, hsv);
            KR_colorConvert(rgb, hls);
            EXPECT_TRUE(yiq.isNear(KR_YIQA(v[3], v[4], v[5]), 1e-12));
            EXPECT_TRUE(hsv.isNear(KR_HSVA(v[6], v[7], v[8]), 1e-12));
            EXPECT_TRUE(hls.isNear(KR_HLSA(v[9], v[10], v[11]), 1e-12));
            // Back again: exact models within rounding (YIQ's inverse has 16 digits).
            KR_RGBA back;
            KR_colorConvert(hsv, back);
            EXPECT_TRUE(back.isNear(rgb, 1e-12));
            KR_colorConvert(hls, back);
            EXPECT_TRUE(back.isNear(rgb, 1e-12));
            KR_colorConvert(yiq, back);
            EXPECT_TRUE(back.isNear(rgb, 1e-12));
            continue;
        }
        KR_RGBA rgb;
        if (kind == "yiq") KR_colorConvert(KR_YIQA(v[0], v[1], v[2]), rgb);
        if (kind == "hsv") KR_colorConvert(KR_HSVA(v[0], v[1], v[2]), rgb);
        if (kind == "hls") KR_colorConvert(KR_HLSA(v[0], v[1], v[2]), rgb);
        EXPECT_TRUE(rgb.isNear(KR_RGBA(v[3], v[4], v[5]), 1e-12));
    }
    EXPECT_EQ(200 * 4, rows);
}

TEST(Colour, EdgesAndAlpha) {
    KR_YIQA yiq;
    KR_colorConvert(KR_RGBA(1, 1, 1), yiq);
    EXPECT_EQ(0.9999999999999999, yiq.y);
    KR_HSVA hsv;
    KR_colorConvert(KR_RGBA(1, 0, 0.5), hsv);
    EXPECT_EQ(0.9166666666666666, hsv.h);
    KR_RGBA a, b;
    KR_colorConvert(KR_HSVA(-0.25, 1, 1), a);
    KR_colorConvert(KR_HSVA(0.75, 1, 1), b);
    EXPECT_EQ(b, a);
    EXPECT_EQ(KR_RGBA(0.5, 0, 1), a);
    KR_colorConvert(KR_HSVA(1, 0.5, 1), a);
    KR_colorConvert(KR_HSVA(0, 0.5, 1), b);
    EXPECT_EQ(b, a);
    KR_colorConvert(KR_HSVA(-1e-300, 0.5, 1), a);  // wraps to 1, which is 0
    EXPECT_EQ(b, a);
    KR_colorConvert(KR_HLSA(-0.25, 0.5, 1), a);
    KR_colorConvert(KR_HLSA(0.75, 0.5, 1), b);
    EXPECT_TRUE(b.isNear(a, 1e-15));  // h + 1/3 rounds differently on either side
    // Non-finite components: NaN out, never a crash; the default CMYA is black.
    const double bad[] = {NAN, INFINITY, -INFINITY};
    for (double x : bad) {
        SCOPED_TRACE(x);
        KR_colorConvert(KR_HSVA(x, 1, 1, 0.5), a);
        EXPECT_TRUE(isnan(a.r) && isnan(a.g) && isnan(a.b) && a.a == 0.5);
        KR_colorConvert(KR_HLSA(0.2, x, 1), a);
        EXPECT_TRUE(isnan(a.r) && isnan(a.g) && isnan(a.b));
        KR_HLSA hls;
        KR_colorConvert(KR_RGBA(0.5, x, 0), hls);
        EXPECT_TRUE(isnan(hls.h) && isnan(hls.l) && isnan(hls.s) && hls.a == 1);
        KR_colorConvert(KR_RGBA(x, 0, 0), hsv);
        EXPECT_TRUE(isnan(hsv.h) && isnan(hsv.s) && isnan(hsv.v));
    }
    KR_colorConvert(KR_YIQA(INFINITY, 0, 0), a);
    EXPECT_EQ(KR_RGBA(1, 1, 1), a);
    KR_colorConvert(KR_CMYA(), a);
    EXPECT_EQ(KR_RGBA(), a);
    unsigned char bytes[4];
    KR_RGBA(0.5, NAN, INFINITY, -1).toBytes(bytes);
    EXPECT_EQ(128, bytes[0]);
    EXPECT_EQ(0, bytes[1]);
    EXPECT_EQ(255, bytes[2]);
    EXPECT_EQ(0, bytes[3]);
    EXPECT_EQ(KR_RGBA(1, 0, 51 / 255.0, 1), KR_RGBA::fromBytes(255, 0, 51, 255));
    expectAlphaToAll<KR_RGBA>();
    expectAlphaToAll<KR_CMYA>();
    expectAlphaToAll<KR_YIQA>();
    expectAlphaToAll<KR_HSVA>();
    expectAlphaToAll<KR_HLSA>();
}

TEST(BitmapGolden, CorpusDecodesAsThePeersDo) {
    std::ifstream index(kData + "/bmp/index.txt");
    ASSERT_TRUE(index.good());
    std::string line;
    int files = 0;
    while (std::getline(index, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string name;
        unsigned int w = 0, h = 0;
        int tol = 0;
        fields >> name >> w >> h >> tol;
        SCOPED_TRACE(line);
        ++files;
        KR_Bitmap bmp;
        ASSERT_KR_OK(bmp.load((kData + "/bmp/" + name + ".bmp").c_str()));
        ASSERT_EQ(w, bmp.getWidth());
        ASSERT_EQ(h, bmp.getHeight());
        std::string want = readFile(kData + "/bmp/" + name + ".rgba");
        std::string got = pixelsOf(bmp);
        ASSERT_EQ(want.size(), got.size());
        // The peers keep an alpha that is zero everywhere; the library reads it as opaque.
        if (name.find("alpha_zero") != std::string::npos) {
            for (size_t i = 3; i < want.size(); i += 4)
                want[i] = static_cast<char>(255);
        }
        for (size_t i = 0; i < got.size(); ++i) {
            int d = static_cast<unsigned char>(got[i]) - static_cast<unsigned char>(want[i]);
            if (abs(d) > tol) {
                ADD_FAILURE() << "byte " << i << ": " << d;
                break;
            }
        }
    }
    EXPECT_GT(files, 90);
}

TEST(Bitmap, SavedBytesAreFixedAndLoadBack) {
    const char* out = getenv("KR_IMAGE_OUT");  // set by the Pillow check
    for (unsigned int w : {1u, 2u, 3u, 5u, 7u}) {
        KR_Bitmap bmp = picture(w, 3);
        ASSERT_KR_OK(bmp.setResolution(3780, 1000));
        for (unsigned int bits : {24u, 32u}) {
            SCOPED_TRACE(std::to_string(w) + " x 3 at " + std::to_string(bits));
            KR_Memory mem;
            ASSERT_KR_OK(bmp.saveMem(mem, bits));
            std::string bytes(static_cast<const char*>(mem.memPtr()), mem.memSize());
            std::string name = "saved" + std::to_string(bits) + "_w" + std::to_string(w);
            // Every target writes the same bytes as the committed file.
            EXPECT_TRUE(bytes == readFile(kData + "/bmp_saved/" + name + ".bmp"));
            KR_Bitmap back;
            ASSERT_KR_OK(back.loadMem(bytes.data(), static_cast<unsigned int>(bytes.size())));
            std::string want = pixelsOf(bmp);
            if (bits == 24) {
                for (size_t i = 3; i < want.size(); i += 4)
                    want[i] = static_cast<char>(255);
            }
            EXPECT_TRUE(want == pixelsOf(back));
            int x = 0, y = 0;
            EXPECT_KR_OK(back.getResolution(x, y));
            EXPECT_EQ(3780, x);
            EXPECT_EQ(1000, y);
            if (out != nullptr) {
                std::string base = std::string(out) + "/" + name;
                EXPECT_KR_OK(bmp.save((base + ".bmp").c_str(), bits));
                std::ofstream(base + ".rgba", std::ios::binary) << want;
            }
        }
    }
}

TEST(Bitmap, DamagedAndUnsupportedFilesAreRefusedBeforeAllocating) {
    const std::string good = readFile(kData + "/bmp/v4_bgra.bmp");
    const std::string pal = readFile(kData + "/bmp/p8_w3.bmp");
    std::string rle = pal;
    put32(rle, 30, 1);

    struct Row {
        const char* name;
        const std::string* base;
        size_t at;  // a 32-bit field, or npos to cut the file to value bytes
        unsigned int value;
        KR_RET_STATUS status;
        const char* reason;
    };

    const size_t cut = std::string::npos;
    const Row rows[] = {
            {"17 bytes", &good, cut, 17, KR_RET_FALSE, ""},
            {"PNG signature", &good, 0, 0x474E5089, KR_RET_FALSE, ""},
            {"last row cut", &good, cut, static_cast<unsigned int>(good.size() - 1),
             KR_RET_ERR_FILE, "truncated pixel data"},
            {"offBits past the end", &good, 10, 1u << 30, KR_RET_ERR_FILE, "truncated pixel data"},
            {"offBits in the header", &good, 10, 100, KR_RET_ERR_FILE, "inside the headers"},
            {"header cut", &good, cut, 60, KR_RET_ERR_FILE, "truncated header"},
            {"header size 41", &good, 14, 41, KR_RET_ERR_FILE, "unknown info header size"},
            {"core header", &good, 14, 12, KR_RET_ERR_NSUP, "OS/2 core header"},
            {"width 0", &good, 18, 0, KR_RET_ERR_FILE, "width not positive"},
            {"width -5", &good, 18, static_cast<unsigned int>(-5), KR_RET_ERR_FILE, "width"},
            {"height 0", &good, 22, 0, KR_RET_ERR_FILE, "height"},
            {"height INT_MIN", &good, 22, 0x80000000u, KR_RET_ERR_FILE, "height"},
            {"planes 2", &good, 26, 0x200002, KR_RET_ERR_FILE, "planes not 1"},
            {"2 bits", &good, 26, 0x20001, KR_RET_ERR_FILE, "bit count"},
            {"RLE8", &pal, 30, 1, KR_RET_ERR_NSUP, "RLE compression"},
            {"top-down RLE8", &rle, 22, static_cast<unsigned int>(-3), KR_RET_ERR_FILE, ""},
            {"PNG inside", &good, 30, 5, KR_RET_ERR_NSUP, "embedded JPEG or PNG"},
            {"compression 9", &good, 30, 9, KR_RET_ERR_FILE, "unknown compression"},
            {"masks at 8 bits", &pal, 30, 3, KR_RET_ERR_FILE, "bit masks at this bit count"},
            {"huge declared size", &good, 18, 32768, KR_RET_ERR_FILE, "truncated pixel data"},
            {"too large", &good, 18, 32769, KR_RET_ERR_NSUP, "image too large"},
            {"zero red mask", &good, 54, 0, KR_RET_ERR_FILE, "colour bit masks"},
            {"split red mask", &good, 54, 0x00F0F000, KR_RET_ERR_FILE, "colour bit masks"},
            {"red over green", &good, 54, 0x00FFFF00, KR_RET_ERR_FILE, "overlapping"},
            {"palette past the end", &pal, cut, 60, KR_RET_ERR_FILE, "palette past the end"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string bytes = *row.base;
        if (row.at == cut) {
            bytes.resize(row.value);
        } else {
            put32(bytes, row.at, row.value);  // at 26: the planes and the bit count together
        }
        KR_Bitmap bmp(2, 1);
        const std::string before = pixelsOf(bmp);
        krtest::ReportCapture reports;
        krTesting::failAllocation(krTesting::faultInjectionAvailable() ? 1 : 0);
        KR_RET_STATUS st = bmp.loadMem(bytes.data(), static_cast<unsigned int>(bytes.size()));
        bool allocated = krTesting::allocationFailureFired();
        krTesting::failAllocation(0);
        EXPECT_KR_STATUS(row.status, st);
        EXPECT_FALSE(allocated);
        EXPECT_EQ(2u, bmp.getWidth());
        EXPECT_TRUE(before == pixelsOf(bmp));
        std::string text = reports.text();
        if (row.status == KR_RET_FALSE) {
            EXPECT_EQ("", text);
        } else {
            EXPECT_NE(std::string::npos,
                      text.find(row.status == KR_RET_ERR_NSUP ? "KR_Bitmap: unsupported BMP: "
                                                              : "KR_Bitmap: corrupt BMP: "));
            EXPECT_NE(std::string::npos, text.find(row.reason)) << text;
        }
    }
}

TEST(Bitmap, LooseEndsOfTheFormat) {
    // An alpha mask that reuses the blue bits is ignored: the image loads opaque.
    std::string v4 = readFile(kData + "/bmp/v4_bgra.bmp");
    std::string want = readFile(kData + "/bmp/v4_bgra.rgba");
    put32(v4, 66, 0xFF);
    KR_Bitmap bmp;
    ASSERT_KR_OK(bmp.loadMem(v4.data(), static_cast<unsigned int>(v4.size())));
    for (size_t i = 3; i < want.size(); i += 4)
        want[i] = static_cast<char>(255);
    EXPECT_TRUE(want == pixelsOf(bmp));
    EXPECT_EQ(32u, bmp.getSourceBitCount());
    // 10-bit channels keep their top 8 bits; a 2-bit alpha scales to 0, 85, 170, 255.
    std::string wide = readFile(kData + "/bmp/v4_bgra.bmp");
    const unsigned int masks[4] = {0x3FF00000u, 0xFFC00u, 0x3FFu, 0xC0000000u};
    for (int k = 0; k < 4; ++k)
        put32(wide, 54 + 4 * k, masks[k]);
    ASSERT_KR_OK(bmp.loadMem(wide.data(), static_cast<unsigned int>(wide.size())));
    for (unsigned int i = 0; i < 5 * 4; ++i) {
        unsigned int x = i % 5, y = i / 5, p = 0;
        for (int k = 3; k >= 0; --k)
            p = p << 8 | static_cast<unsigned char>(wide[122 + (3 - y) * 20 + x * 4 + k]);
        const unsigned char want[4] = {
                static_cast<unsigned char>(p >> 22), static_cast<unsigned char>(p >> 12),
                static_cast<unsigned char>(p >> 2), static_cast<unsigned char>((p >> 30) * 85)};
        EXPECT_EQ(0, memcmp(want, bmp.getPixels() + 4 * i, 4)) << i;
    }
    // A 40-byte header with four masks (alpha bitfields) reads alpha from the fourth.
    std::string ab = readFile(kData + "/bmp/v4_bgra.bmp");
    ab.erase(14 + 56, 108 - 56);
    put32(ab, 10, 14 + 56);
    put32(ab, 14, 40);
    put32(ab, 30, 6);
    ASSERT_KR_OK(bmp.loadMem(ab.data(), static_cast<unsigned int>(ab.size())));
    EXPECT_TRUE(readFile(kData + "/bmp/v4_bgra.rgba") == pixelsOf(bmp));
}

TEST(Bitmap, PixelsCopiesAndCallErrors) {
    KR_Bitmap bmp(3, 2);
    ASSERT_TRUE(bmp.objIsEnabled());
    EXPECT_EQ(12u, bmp.getStride());
    EXPECT_EQ(32u, bmp.getSourceBitCount());
    KR_RGBA c;
    EXPECT_KR_OK(bmp.getPixel(2, 1, c));
    EXPECT_EQ(KR_RGBA(0, 0, 0, 0), c);
    EXPECT_KR_OK(bmp.setPixel(2, 1, KR_RGBA(1, 0.5, 0, 1)));
    KR_Bitmap copy(bmp);
    EXPECT_KR_OK(bmp.setPixel(2, 1, KR_RGBA()));
    EXPECT_KR_OK(copy.getPixel(2, 1, c));
    EXPECT_EQ(KR_RGBA(1, 128 / 255.0, 0, 1), c);
    {
        krtest::ReportCapture reports;
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, bmp.getPixel(1, 2, c));
        EXPECT_NE(std::string::npos, reports.text().find("KR_Bitmap: pixel access"));
        EXPECT_NE(std::string::npos, reports.text().find("Index 2 not in [0,1]"));
    }
    KR_Memory mem;
    KR_Bitmap empty;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, empty.saveMem(mem, 24));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, bmp.saveMem(mem, 16));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, bmp.create(0, 4));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, bmp.create(32769, 1));
    EXPECT_EQ(3u, bmp.getWidth());
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, bmp.load(L"/nonexistent/dir/x.bmp"));
    empty = copy;
    EXPECT_TRUE(pixelsOf(empty) == pixelsOf(copy));
}

TEST(Bitmap, AllocationFailuresLeaveTheBitmapAsItWas) {
    KR_REQUIRE_FAULT_INJECTION();
    const std::string file = readFile(kData + "/bmp/p24_w5.bmp");
    KR_Bitmap source = picture(4, 4);
    krtest::ReportCapture reports;
    krtest::forEachAllocationFailure(
            [] { return picture(2, 2); },
            [&](KR_Bitmap& bmp) {
                KR_RET_STATUS st = bmp.loadMem(file.data(), static_cast<unsigned int>(file.size()));
                if (krtest::failed(st)) return st;
                bmp = source;
                if (bmp.getWidth() != 4) return KR_RET_ERR_MEM;  // the copy failed
                KR_Memory mem;
                return bmp.saveMem(mem, 32);
            },
            [&](KR_Bitmap& bmp, KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_TRUE(bmp.getWidth() == 2 || bmp.getWidth() == 5 || bmp.getWidth() == 4);
                EXPECT_TRUE(bmp.getPixels() != nullptr);
            });
}
