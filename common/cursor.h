// The wait cursor that brackets every slow step of the program.
#pragma once

void WaitCursorOn();
void WaitCursorOff();
