/* bmp_stb_decode.c — decodes one image file with stb_image into "width height\n" and then the
 * RGBA bytes, rows top-down, on standard output; exit status 1 when stb_image refuses the file.
 * Used by bmp_golden.py only. */
#include <stdio.h>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_BMP
#include "stb/stb_image.h"

int main(int argc, char** argv) {
    int w, h, n;
    unsigned char* rgba;
    if (argc != 2) return 2;
    rgba = stbi_load(argv[1], &w, &h, &n, 4);
    if (rgba == NULL) {
        fprintf(stderr, "%s: %s\n", argv[1], stbi_failure_reason());
        return 1;
    }
    printf("%d %d\n", w, h);
    fwrite(rgba, 4, (size_t)w * (size_t)h, stdout);
    stbi_image_free(rgba);
    return 0;
}
