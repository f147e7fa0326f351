// The calendar server's appointment form: what IAppointment::Display shows.
#pragma once

#include <windows.h>

namespace poom {

class Appointment;

// Shows the form on the appointment, modally over the caller's active window, and saves on OK.
// S_OK once the form was shown and closed (whether saved or not).
HRESULT ShowAppointmentForm(Appointment* appt);
// Lets go of the form's window class as the DLL is unloaded.
void ReleaseFormClass();

// The server DLL, whose resources hold the form's template (server.cpp).
HMODULE ServerModule();

}  // namespace poom
