// lfgen SIZE OUT.ics: writes a generated calendar (small, medium or large).
#include <cstdio>

#include "generator.h"

int main(int argc, char** argv)
{
    if (argc != 3) {
        fputs("usage: lfgen small|medium|large OUT.ics\n", stderr);
        return 2;
    }
    std::string text = lfgen::generate(lfgen::preset(argv[1]));
    FILE* f = fopen(argv[2], "wb");
    if (!f || fwrite(text.data(), 1, text.size(), f) != text.size() || fclose(f) != 0) {
        fprintf(stderr, "lfgen: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
