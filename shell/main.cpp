#include "shell.h"

int WINAPI wWinMain(HINSTANCE inst, HINSTANCE, LPWSTR, int showCmd)
{
    return LanternfieldsMain(inst, showCmd);
}
