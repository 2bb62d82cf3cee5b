// Writes what is installed beside krrender and made from its options:  krrenderPages MANUAL_PAGE COMPLETION

#include "KrAppDataset.h"
#include "KrAppManual.h"
#include "KrAppOptions.h"

#include <cstdio>
#include <fstream>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s MANUAL_PAGE COMPLETION\n", argv[0]);
        return 2;
    }
    bool isWritten = false;
    KrAppOptions::describe([&](const CLI::App& app) {
        KrAppDataset::describe([&](const CLI::App& dataset) {
            std::ofstream page(argv[1]);
            std::ofstream completion(argv[2]);
            // Flushed here, so that a full disk is noticed.
            isWritten = page << KrAppManual::page(app, {&dataset}) << std::flush &&
                        completion << KrAppManual::bashCompletion(app, {&dataset}) << std::flush;
        });
    });
    if (!isWritten) {
        std::fprintf(stderr, "%s: cannot write %s and %s\n", argv[0], argv[1], argv[2]);
    }
    return isWritten ? 0 : 1;
}
