// The date-range queries: every view asks the store which appointments
// (each occurrence of a series on its own) touch a span of days, in order of
// start, through this one walk.
#include "store.h"
#include "common/appstate.h"
#include "common/com.h"
#include "common/draw.h"
#include "calendar/dates.h"

const WCHAR RestrictOverlapClosed[] = L"[End] >= %s AND [Start] <= %s";
const WCHAR RestrictOverlapBeforeSecond[] = L"[End] >= %s AND [Start] <  %s";
const WCHAR RestrictOverlapAfterFirst[] = L"[End] >  %s AND [Start] <= %s";

void ShortDateText(const SYSTEMTIME &day, WCHAR *text, int length)
{
    // Only the date counts; a caller may have set the hour to 24 to mean
    // the end of the day, which the date picture never prints.
    SYSTEMTIME d = SystemDate(day.wMonth, day.wDay, day.wYear);
    if (!GetDateFormatW(LOCALE_SYSTEM_DEFAULT, DATE_SHORTDATE, &d, nullptr, text, length))
        text[0] = 0;
}

void BuildRestriction(const SYSTEMTIME &firstDay, const SYSTEMTIME &secondDay, const WCHAR *tmpl,
                      WCHAR *text)
{
    WCHAR first[DATE_TEXT_LEN], second[DATE_TEXT_LEN];
    ShortDateText(firstDay, first, DATE_TEXT_LEN);
    ShortDateText(secondDay, second, DATE_TEXT_LEN);
    wsprintfW(text, tmpl, first, second);
}

// A redraw request from the UI thread abandons a rendering pass's walk.
static bool StopRequested(int thread)
{
    return thread == QUERY_RENDERING && PassAbandoned();
}

IAppointment *AsAppointment(HRESULT hr, IDispatch *found)
{
    ComPtr<IDispatch> handed(found);
    IAppointment *item = nullptr;
    if (FAILED(hr) || !found ||
        FAILED(found->QueryInterface(IID_IAppointment, reinterpret_cast<void **>(&item))))
        return nullptr;
    return item;
}

int QueryAppointments(const SYSTEMTIME &firstDay, const SYSTEMTIME &secondDay, const WCHAR *tmpl,
                      AppointmentVisitor visit, void *context, int thread)
{
    return QueryAppointments(firstDay, secondDay, tmpl, visit, context, thread, nullptr, nullptr);
}

void ListDayGrid(DayGrid *grid)
{
    *grid = {};
    for (long at = 1800; at < 86400; at += 1800)
        grid->marks[grid->count++] = at;
}

// Whether the store left out occurrences starting on a day from `first` to `last`.
static int AnyDayThinned(ILanternfieldsDayGrid *grid, const SYSTEMTIME &first, const SYSTEMTIME &last)
{
    int from = OleDayNumber(first.wMonth, first.wDay, first.wYear);
    int to = OleDayNumber(last.wMonth, last.wDay, last.wYear);
    for (int day = from; day <= to; day++) {
        VARIANT_BOOL thinned = VARIANT_FALSE;
        if (SUCCEEDED(grid->IsDayThinned(day, &thinned)) && thinned != VARIANT_FALSE)
            return 1;
    }
    return 0;
}

int QueryAppointments(const SYSTEMTIME &firstDay, const SYSTEMTIME &secondDay, const WCHAR *tmpl,
                      AppointmentVisitor visit, void *context, int thread, const DayGrid *grid,
                      int *thinned)
{
    if (thinned)
        *thinned = 0;
    // A failed open leaves an empty calendar rather than a broken view.
    if (!g_app.calendarFolder)
        return 1;

    WCHAR restriction[RESTRICTION_LEN];
    BuildRestriction(firstDay, secondDay, tmpl, restriction);

    ComPtr<IPOutlookItemCollection> items;
    if (FAILED(g_app.calendarFolder->get_Items(&items)) || !items)
        return 1;

    items->Sort(Bstr(L"[Start]"), VARIANT_FALSE);
    items->put_IncludeRecurrences(VARIANT_TRUE);
    ComPtr<ILanternfieldsDayGrid> dayGrid;
    if (grid && grid->count >= 0 && grid->count <= DAY_GRID_MARKS &&
        SUCCEEDED(items->QueryInterface(IID_ILanternfieldsDayGrid, reinterpret_cast<void **>(&dayGrid))) &&
        dayGrid) {
        if (FAILED(dayGrid->SetDayGrid(grid->count, grid->marks, grid->pixels ? grid->startPixel : nullptr,
                                       grid->pixels ? grid->endPixel : nullptr, grid->firstDay, grid->lastDay)))
            dayGrid.Reset();
    }

    // Find and FindNext fill `found` in, so they are called before it is
    // read: as arguments of one call their order would be unspecified.
    // Each item is let go before the next is asked for, and the last one
    // before the collection.
    IDispatch *found = nullptr;
    HRESULT hr = items->Find(Bstr(restriction), &found);
    ComPtr<IAppointment> item(AsAppointment(hr, found));
    if (dayGrid && thinned)
        *thinned = AnyDayThinned(dayGrid.get(), firstDay, secondDay);
    while (item) {
        if (StopRequested(thread) || !visit(item.get(), context))
            return 0;
        item.Reset();
        found = nullptr;
        hr = items->FindNext(&found);
        item.Reset(AsAppointment(hr, found));
    }
    return 1;
}

BOOL ReadAppointmentTimes(IAppointment *item, AppointmentTimes *out)
{
    VARIANT_BOOL allDay = VARIANT_FALSE;
    out->busyStatus = olBusy;
    if (FAILED(item->get_Start(&out->start)) || FAILED(item->get_End(&out->end)))
        return FALSE;
    item->get_AllDayEvent(&allDay);
    item->get_BusyStatus(&out->busyStatus);
    out->allDay = (allDay & 0xFFFF) != 0;
    return TRUE;
}

void FreeStoreString(BSTR text)
{
    if (!text)
        return;
    if (g_app.outlookApp)
        g_app.outlookApp->SysFreeString(text);
    else
        SysFreeString(text);
}
