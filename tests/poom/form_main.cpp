// The start of the server tests that use the program's apartment (the form, the category list):
// the server registered into this prefix, as regsvr32 would.
#include "com_support.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s PATH-TO-lfpoom.dll\n", argv[0]);
        return 2;
    }
    g_dllPath = WindowsPath(argv[1]);
    HMODULE dll = LoadLibraryW(g_dllPath.c_str());
    auto reg = dll ? reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
                         reinterpret_cast<void*>(GetProcAddress(dll, "DllRegisterServer")))
                   : nullptr;
    if (!reg || FAILED(reg())) {
        std::fprintf(stderr, "cannot load or register %s\n", argv[1]);
        return 1;
    }
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int result = RUN_ALL_TESTS();
    CoUninitialize();
    return result;
}
