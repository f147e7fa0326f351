#include "msgseq.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cstdio>
#include <vector>

struct LoggedWindow {
    HWND hwnd;
    WNDPROC previous;
};
struct LoggedMessage {
    int window;
    UINT msg;
    WPARAM wp;
    LPARAM lp;
};

static std::vector<LoggedWindow> g_windows;
static std::vector<UINT> g_watched;
static std::vector<LoggedMessage> g_log;

static LRESULT CALLBACK LoggingProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    auto w = std::find_if(g_windows.begin(), g_windows.end(),
                          [hwnd](const LoggedWindow &l) { return l.hwnd == hwnd; });
    if (w == g_windows.end())
        return DefWindowProcW(hwnd, msg, wp, lp);
    WNDPROC previous = w->previous;
    int index = (int)(w - g_windows.begin());
    if (std::find(g_watched.begin(), g_watched.end(), msg) != g_watched.end())
        g_log.push_back({index, msg, wp, lp});
    if (msg == WM_NCDESTROY) {
        SetWindowLongPtrW(hwnd, GWLP_WNDPROC, (LONG_PTR)previous);
        w->hwnd = nullptr;
    }
    return CallWindowProcW(previous, hwnd, msg, wp, lp);
}

void StopLoggingMessages()
{
    for (LoggedWindow &w : g_windows)
        if (w.hwnd && IsWindow(w.hwnd) &&
            GetWindowLongPtrW(w.hwnd, GWLP_WNDPROC) == (LONG_PTR)LoggingProc)
            SetWindowLongPtrW(w.hwnd, GWLP_WNDPROC, (LONG_PTR)w.previous);
    g_windows.clear();
}

void LogMessages(std::initializer_list<HWND> windows, std::initializer_list<UINT> watched)
{
    StopLoggingMessages();
    g_log.clear();
    g_watched.assign(watched.begin(), watched.end());
    for (HWND w : windows) {
        g_windows.push_back({w, nullptr});
        g_windows.back().previous =
            (WNDPROC)SetWindowLongPtrW(w, GWLP_WNDPROC, (LONG_PTR)LoggingProc);
    }
}

static std::string MessageName(UINT msg)
{
    static const struct {
        UINT msg;
        const char *name;
    } names[] = {
        {WM_CREATE, "WM_CREATE"},
        {WM_DESTROY, "WM_DESTROY"},
        {WM_MOVE, "WM_MOVE"},
        {WM_SIZE, "WM_SIZE"},
        {WM_ACTIVATE, "WM_ACTIVATE"},
        {WM_SETFOCUS, "WM_SETFOCUS"},
        {WM_KILLFOCUS, "WM_KILLFOCUS"},
        {WM_SETTEXT, "WM_SETTEXT"},
        {WM_PAINT, "WM_PAINT"},
        {WM_CLOSE, "WM_CLOSE"},
        {WM_ERASEBKGND, "WM_ERASEBKGND"},
        {WM_SHOWWINDOW, "WM_SHOWWINDOW"},
        {WM_ACTIVATEAPP, "WM_ACTIVATEAPP"},
        {WM_MOUSEACTIVATE, "WM_MOUSEACTIVATE"},
        {WM_WINDOWPOSCHANGING, "WM_WINDOWPOSCHANGING"},
        {WM_WINDOWPOSCHANGED, "WM_WINDOWPOSCHANGED"},
        {WM_NOTIFY, "WM_NOTIFY"},
        {WM_NCACTIVATE, "WM_NCACTIVATE"},
        {WM_NCPAINT, "WM_NCPAINT"},
        {WM_KEYDOWN, "WM_KEYDOWN"},
        {WM_KEYUP, "WM_KEYUP"},
        {WM_CHAR, "WM_CHAR"},
        {WM_INITDIALOG, "WM_INITDIALOG"},
        {WM_COMMAND, "WM_COMMAND"},
        {WM_TIMER, "WM_TIMER"},
        {WM_INITMENU, "WM_INITMENU"},
        {WM_INITMENUPOPUP, "WM_INITMENUPOPUP"},
        {WM_MENUSELECT, "WM_MENUSELECT"},
        {WM_ENTERIDLE, "WM_ENTERIDLE"},
        {WM_UNINITMENUPOPUP, "WM_UNINITMENUPOPUP"},
        {WM_CTLCOLORSTATIC, "WM_CTLCOLORSTATIC"},
        {WM_MOUSEMOVE, "WM_MOUSEMOVE"},
        {WM_LBUTTONDOWN, "WM_LBUTTONDOWN"},
        {WM_LBUTTONUP, "WM_LBUTTONUP"},
        {WM_LBUTTONDBLCLK, "WM_LBUTTONDBLCLK"},
        {WM_ENTERMENULOOP, "WM_ENTERMENULOOP"},
        {WM_EXITMENULOOP, "WM_EXITMENULOOP"},
        {WM_CAPTURECHANGED, "WM_CAPTURECHANGED"},
        {WM_PRINTCLIENT, "WM_PRINTCLIENT"},
    };
    for (auto &n : names)
        if (n.msg == msg)
            return n.name;
    char text[16];
    snprintf(text, sizeof(text), "0x%04X", msg);
    return text;
}

static std::string Describe(int window, UINT msg, WPARAM wp, LPARAM lp)
{
    char text[64];
    snprintf(text, sizeof(text), " w%d wp=%llx lp=%llx", window, (unsigned long long)wp,
             (unsigned long long)lp);
    return MessageName(msg) + text;
}

std::string LoggedMessages()
{
    std::string out;
    for (const LoggedMessage &m : g_log)
        out += "  " + Describe(m.window, m.msg, m.wp, m.lp) + "\n";
    return out;
}

static bool Matches(const SeqMessage &e, const LoggedMessage &m)
{
    return e.msg == m.msg && e.window == m.window && (!(e.flags & SEQ_WPARAM) || e.wp == m.wp) &&
           (!(e.flags & SEQ_LPARAM) || e.lp == m.lp);
}

// As Wine's ok_sequence: both lists are walked together; an expected message that does not
// match is skipped only when it is optional.
void ExpectSequenceAt(const SeqMessage *expected, int count, const char *context, const char *file,
                      int line)
{
    std::string expectedText;
    for (int i = 0; i < count; i++)
        expectedText +=
            "  " + Describe(expected[i].window, expected[i].msg, expected[i].wp, expected[i].lp) +
            (expected[i].flags & SEQ_OPTIONAL ? " (optional)\n" : "\n");
    std::string failure;
    size_t j = 0;
    for (int i = 0; i < count && failure.empty(); i++) {
        if (j < g_log.size() && Matches(expected[i], g_log[j]))
            j++;
        else if (!(expected[i].flags & SEQ_OPTIONAL))
            failure =
                "expected " + MessageName(expected[i].msg) + " as message " + std::to_string(j + 1);
    }
    if (failure.empty() && j < g_log.size())
        failure =
            "unexpected " + MessageName(g_log[j].msg) + " as message " + std::to_string(j + 1);
    if (!failure.empty())
        ADD_FAILURE_AT(file, line) << context << ": " << failure << "\nexpected:\n"
                                   << expectedText << "received:\n"
                                   << LoggedMessages();
    g_log.clear();
}
