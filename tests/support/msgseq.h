// The order of the messages windows receive, checked against a constant table of the expected
// ones, as Wine's ok_sequence does. For where order is the behaviour: the text set before the
// label shows, the command only once the menu has closed.
#pragma once

#include <windows.h>
#include <initializer_list>
#include <string>

enum {
    SEQ_OPTIONAL = 1, // may be missing: the platforms differ, or it depends on what came before
    SEQ_WPARAM = 2,   // wParam must match too
    SEQ_LPARAM = 4,   // lParam must match too
};

struct SeqMessage {
    UINT msg;
    unsigned flags = 0;
    WPARAM wp = 0;
    LPARAM lp = 0;
    int window = 0; // which of the logged windows, in the order given to LogMessages
};

// Starts recording the messages in `watched` that these windows receive (subclassing them);
// an earlier log is dropped. Messages outside `watched` are not recorded, so a table lists only
// what the behaviour is about.
void LogMessages(std::initializer_list<HWND> windows, std::initializer_list<UINT> watched);
// Puts the windows' procedures back.
void StopLoggingMessages();
// The recorded messages so far, one per line, for a failure message.
std::string LoggedMessages();

// Compares the messages recorded since the last check with the table and clears the record.
#define EXPECT_SEQUENCE(table, context)                                                            \
    ExpectSequenceAt(table, sizeof(table) / sizeof(table[0]), context, __FILE__, __LINE__)
void ExpectSequenceAt(const SeqMessage *expected, int count, const char *context, const char *file,
                      int line);
