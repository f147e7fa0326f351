// A watch over the program's "Error" message boxes for a test, from a thread of its own so
// that a box shown deep inside a flow is answered wherever it comes.
#pragma once

#include <windows.h>

#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// A message box's text: its longest static text (the icon's static has none).
inline std::wstring MessageBoxText(HWND box)
{
    std::wstring best;
    EnumChildWindows(
        box,
        [](HWND child, LPARAM out) -> BOOL {
            WCHAR cls[32], text[512];
            GetClassNameW(child, cls, 32);
            GetWindowTextW(child, text, 512);
            auto *longest = reinterpret_cast<std::wstring *>(out);
            if (!lstrcmpiW(cls, L"Static") && wcslen(text) > longest->size())
                *longest = text;
            return TRUE;
        },
        (LPARAM)&best);
    return best;
}

// Watches for the program's "Error" boxes (and the few it captions "error"), notes their
// text, caption and owner and presses OK, so a failure shown during start-up does not stop
// the test.
class ErrorBoxes {
public:
    struct Box {
        std::wstring text;
        HWND owner;
        std::wstring caption;
    };
    ErrorBoxes() { thread_ = CreateThread(nullptr, 0, Watch, this, 0, nullptr); }
    // The watcher reads window texts, which waits on the thread owning each window: this
    // thread keeps answering while it waits for the watcher to end.
    ~ErrorBoxes()
    {
        stop_ = true;
        DWORD start = GetTickCount();
        while (GetTickCount() - start < 5000 &&
               MsgWaitForMultipleObjects(1, &thread_, FALSE, 5000, QS_ALLINPUT) == WAIT_OBJECT_0 + 1) {
            MSG msg;
            while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
                TranslateMessage(&msg);
                DispatchMessageW(&msg);
            }
        }
        CloseHandle(thread_);
    }
    std::vector<Box> Seen()
    {
        std::lock_guard<std::mutex> lock(mu_);
        return seen_;
    }
    std::vector<std::wstring> Texts()
    {
        std::vector<std::wstring> out;
        for (const Box &b : Seen())
            out.push_back(b.text);
        return out;
    }
    void Clear()
    {
        std::lock_guard<std::mutex> lock(mu_);
        seen_.clear();
    }

private:
    static DWORD WINAPI Watch(void *self)
    {
        auto *me = static_cast<ErrorBoxes *>(self);
        while (!me->stop_) {
            EnumWindows(Found, (LPARAM)me);
            Sleep(20);
        }
        return 0;
    }
    static BOOL CALLBACK Found(HWND h, LPARAM self)
    {
        auto *me = reinterpret_cast<ErrorBoxes *>(self);
        DWORD pid = 0;
        GetWindowThreadProcessId(h, &pid);
        WCHAR cls[32], caption[64];
        GetClassNameW(h, cls, 32);
        GetWindowTextW(h, caption, 64);
        if (pid != GetCurrentProcessId() || lstrcmpW(cls, L"#32770") || (lstrcmpW(caption, L"Error") && lstrcmpW(caption, L"error")) ||
            !IsWindowVisible(h) || me->handled_.count(h))
            return TRUE;
        Box box;
        box.text = MessageBoxText(h);
        box.owner = GetWindow(h, GW_OWNER);
        box.caption = caption;
        me->handled_.insert(h);
        {
            std::lock_guard<std::mutex> lock(me->mu_);
            me->seen_.push_back(box);
        }
        PostMessageW(h, WM_COMMAND, IDOK, 0);
        return TRUE;
    }
    HANDLE thread_;
    std::atomic<bool> stop_{false};
    std::mutex mu_;
    std::vector<Box> seen_;
    std::set<HWND> handled_;
};
