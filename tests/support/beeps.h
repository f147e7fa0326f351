// Counts the program's default beeps, which tell the user that something was refused. Under
// Wine a beep is the X server's bell, which a test cannot hear, so the program's calls are
// counted on their way to the real MessageBeep.
#pragma once

// The program's MessageBeep calls since the first call of this function.
int BeepsSoFar();
