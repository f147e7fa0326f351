// The calendar server's view of the store: appointments, their occurrences,
// recurrence patterns, exceptions and OIDs, and the queries the object model
// asks. The COM objects are thin wrappers over this; the iCalendar files are
// read and written by the lfical engine underneath. Portable (no Win32), so
// it is tested natively as well as under Wine.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <string>
#include <vector>

#include "caltime.h"
#include "ical.h"
#include "restrict.h"

namespace poom {

// Recurrence kinds and busy status: the object model's values.
enum : long {
    kRecursDaily = 0, kRecursWeekly = 1, kRecursMonthly = 2, kRecursMonthNth = 3,
    kRecursYearly = 5, kRecursYearNth = 6,
};
enum : long { kBusyFree = 0, kBusyTentative = 1, kBusyBusy = 2, kBusyOutOfOffice = 3 };
enum : long { kSensNormal = 0, kSensPersonal = 1, kSensPrivate = 2, kSensConfidential = 3 };

// The object model's recurrence pattern.
struct Pattern {
    long type = kRecursDaily;
    long interval = 1;
    long dayOfWeekMask = 0;  // bit 0 Sunday .. bit 6 Saturday
    long dayOfMonth = 0;
    long monthOfYear = 0;
    long instance = 0;       // 1..4, 5 = last
    long occurrences = 0;    // > 0: ends after that many
    LocalSecs patternEnd = kNoTime;  // set: last day on which it may occur
    bool NoEnd() const { return occurrences <= 0 && patternEnd == kNoTime; }
    // False when the store's RRULE says more than the pattern can (BYHOUR,
    // several month days, ...): the occurrences still come from the RRULE,
    // and this is the closest pattern, written back only if changed.
    bool exact = true;
};

// The RRULE's closest object-model pattern; dtstart fills what the rule
// leaves implicit (the weekday of a weekly rule, the day of a monthly one).
Pattern PatternFromRecur(const lfical::Recur& r, LocalSecs dtstart);
// The RRULE text for a pattern (without "RRULE:"); untilValue is the UNTIL
// value to write when the pattern ends on a date (its form depends on the
// series' clock, which the store knows).
std::string RRuleFromPattern(const Pattern& p, LocalSecs dtstart, const std::string& untilValue);

struct Fields {
    std::wstring subject, location, categories, body;
    LocalSecs start = 0, end = 0;
    bool allDay = false, reminderSet = false;
    long busyStatus = kBusyBusy, sensitivity = kSensNormal, reminderMinutes = 15;
};

bool FieldsEqual(const Fields& a, const Fields& b);

class Store;

// The texts of one event as a query found it, shared by all its
// occurrences. The categories come with the query (the month view reads
// them for every appointment); the subject, location and notes are read
// from the store the first time anyone asks, since most walks never do.
class EventTexts {
public:
    // Texts already decoded.
    explicit EventTexts(Fields decoded);
    // Texts to be read from the event `id` of the store as it was at
    // `version`; after a change, from the appointment `oid` as it is now.
    EventTexts(std::weak_ptr<const Store> store, std::uint64_t version, lfical::EventId id, std::uint32_t oid,
               std::wstring categories);
    EventTexts(const EventTexts&) = delete;
    EventTexts& operator=(const EventTexts&) = delete;

    const std::wstring& Text(std::wstring Fields::*m) const;
    // Subject, location, categories and notes, all decoded.
    const Fields& All() const;

private:
    friend class Store;
    mutable std::once_flag once_;
    mutable Fields f_;
    mutable std::atomic<bool> done_{false};
    std::weak_ptr<const Store> store_;
    std::uint64_t version_ = 0;
    lfical::EventId id_ = lfical::kNoEvent;
    std::uint32_t oid_ = 0;
};

// What a query answers: a snapshot of one appointment or one occurrence.
struct ItemSnapshot {
    std::uint32_t oid = 0;       // the series' OID for an occurrence
    bool isOccurrence = false;   // one occurrence of a recurring series
    bool isOverride = false;     // ... changed from the series
    LocalSecs originalStart = 0; // the occurrence's start before any change
    bool recurring = false;
    Fields f;
    // From QueryItems: the texts of the event, shared by all its
    // occurrences; f's texts are then empty. Null when f holds them.
    std::shared_ptr<const EventTexts> texts;

    const std::wstring& Text(std::wstring Fields::*m) const { return texts ? texts->Text(m) : f.*m; }
    // Makes the shared texts f's own.
    void OwnTexts() {
        if (!texts) return;
        const Fields& all = texts->All();
        f.subject = all.subject;
        f.location = all.location;
        f.categories = all.categories;
        f.body = all.body;
        texts.reset();
    }
};

// One item a query found, small enough that a walk over thousands stays in
// the heap's ordinary blocks: what every reader asks (times, busy status)
// and the texts shared with its event. It becomes a whole snapshot only
// when it is handed out.
struct FoundItem {
    LocalSecs start = 0, end = 0, originalStart = 0;
    std::shared_ptr<const EventTexts> texts;
    std::uint32_t oid = 0;
    std::int32_t busyStatus = 0, sensitivity = 0, reminderMinutes = 0;
    bool allDay = false, recurring = false, isOverride = false, reminderSet = false;

    const std::wstring& Text(std::wstring Fields::*m) const { return texts->Text(m); }
    ItemSnapshot Snapshot() const;
    // All but the shared texts, into a snapshot or fields that already
    // exist (their texts emptied).
    void Into(ItemSnapshot& s) const;
    void Into(Fields& f) const;
    // A whole snapshot made small, its texts shared from then on.
    static FoundItem Of(ItemSnapshot s);
};

struct ExceptionInfo {
    LocalSecs originalStart = 0;
    bool deleted = false;
    ItemSnapshot item;  // the changed occurrence (not deleted ones)
};

RestrictRecord RecordOf(const ItemSnapshot& s);

// The open store. Every member takes one lock, so the UI thread and the
// rendering thread may call at once.
class Store : public std::enable_shared_from_this<Store> {
public:
    // local: the machine's zone; zoned and UTC times are shown in it.
    explicit Store(lfical::Zone local);

    // Opens a .ics file or (directory) a vdir. createIfMissing starts an
    // empty single-file store (written on first save). A file that cannot be
    // read is an error and is left untouched; in a directory, files that are
    // not calendars are left untouched and the rest is served.
    bool Open(const std::string& path, bool createIfMissing, std::string& error, bool directory = false);
    // Re-reads the store after another program changed it.
    bool Reload(std::string& error);
    // What the reads of the store found wrong and left out (a file of a
    // directory store with no UID or several, a broken event), each
    // "FILE[:LINE]: message", given once in the store's life.
    std::vector<std::string> TakeNewProblems();
    const std::string& Path() const { return path_; }

    // Items matching every restriction given (all items when none), in
    // start order when recurrences are included, else in store order.
    std::vector<ItemSnapshot> Query(bool includeRecurrences, const std::vector<const Restriction*>& rs) const;
    // The same, each item's texts shared with the other occurrences of its
    // event (FoundItem::texts): what a collection walks, where most
    // readers never ask for a text.
    std::vector<FoundItem> QueryItems(bool includeRecurrences, const std::vector<const Restriction*>& rs) const;
    // A query's answer back from its reader, for the next query to fill:
    // Wine's heap maps a large block anew each time one is asked for.
    void Recycle(std::vector<FoundItem>&& list) const;
    bool Get(std::uint32_t oid, ItemSnapshot& out) const;
    bool GetPattern(std::uint32_t oid, Pattern& out) const;
    std::vector<ExceptionInfo> Exceptions(std::uint32_t oid) const;
    // The occurrence of a series that starts (or originally started) at when.
    bool GetOccurrence(std::uint32_t oid, LocalSecs when, ItemSnapshot& out) const;

    // Saves a new (oid 0, which receives the new OID) or changed
    // appointment. pattern: the new recurrence, or null to keep it;
    // clearRecurrence makes the appointment a one-off.
    // base: the fields as the caller read them. When another program has
    // changed the appointment since, ours is not written over its version:
    // it is kept beside it as a new appointment, and the result is false
    // with the UID in LastConflicts(). When another program has deleted it,
    // ours is kept as a new appointment (KeptAfterDelete()).
    // `read` is the series' pattern as the caller read it: a series another
    // program deleted meanwhile is kept as a series again with it.
    bool SaveItem(std::uint32_t& oid, const Fields& f, const Pattern* pattern, bool clearRecurrence,
                  std::string& error, const Fields* base = nullptr, const Pattern* read = nullptr);
    // Saves a changed occurrence: one changed before (an exception of the
    // series) is changed again; a first change makes it an exception of its
    // own. The rest of the series stays as it was.
    // base: the occurrence's fields as the caller read them. When another
    // program (a sync) has changed the occurrence since, its version stays
    // and ours is kept beside it as an appointment of its own; the result
    // is false with the series' UID in LastConflicts(). When another
    // program has deleted the occurrence or the series, ours is kept as a
    // new appointment (KeptAfterDelete()).
    bool SaveOccurrence(std::uint32_t oid, LocalSecs originalStart, const Fields& f, std::string& error,
                        const Fields* base = nullptr);
    bool DeleteItem(std::uint32_t oid, std::string& error);
    bool DeleteOccurrence(std::uint32_t oid, LocalSecs originalStart, std::string& error);

    // One calendar holding the given appointments, each series with its changed occurrences,
    // in their own bytes (so nothing the server does not understand is lost), after the
    // definitions of the zones they use: what is handed to another calendar when they are
    // beamed. False, with the reason, when one of them is no longer in the store.
    bool ExportCalendar(const std::vector<std::uint32_t>& oids, std::string& text, std::string& error) const;

    size_t Count() const;
    // The category names an appointment uses, its changed occurrences' included, split as an
    // appointment's Categories reads (repeats and all); none when it is not in the store.
    std::vector<std::wstring> CategoryNamesOf(std::uint32_t oid) const;
    // The same for every appointment of the store, by OID.
    std::map<std::uint32_t, std::vector<std::wstring>> CategoryNamesByItem() const;
    // UIDs the last save found changed both here and on disk; a change
    // refused for that reason leaves the UID of the refused appointment here.
    std::vector<std::string> LastConflicts() const;
    // The appointment that keeps the caller's version when the last save
    // found the appointment (or the occurrence) deleted by another program
    // meanwhile; 0 otherwise. That save returned false.
    std::uint32_t KeptAfterDelete() const;
    std::string UidOf(std::uint32_t oid) const;

    // Fills in the subject, location and notes of texts: from its event if
    // the store has not changed since, else from its appointment as it is now.
    void ReadTexts(const EventTexts& texts) const;

private:
    // What every occurrence of one event shares, kept until the store changes:
    // a month walk meets the same series again in the next month.
    struct EventPart {
        std::uint32_t oid = 0;
        long busyStatus = 0, sensitivity = 0, reminderMinutes = 0;
        bool reminderSet = false;
        std::shared_ptr<const EventTexts> texts;
    };
    const EventPart& PartOf(lfical::EventId id) const;
    // Every change to the store goes through here first: what was kept of
    // the old events no longer holds.
    void Forget();
    std::uint32_t OidOfUid(const std::string& uid) const;
    lfical::EventId EventOfOid(std::uint32_t oid) const;

    lfical::EventId Find(std::uint32_t oid) const;
    // The occurrence of a series that originally starts at originalStart and
    // has not been changed on its own (it may follow a change to it and all
    // later ones).
    bool FindPlainOccurrence(lfical::EventId series, LocalSecs originalStart, lfical::Occurrence& out) const;
    void AssignOids();
    void NoteProblems(const std::vector<lfical::Problem>& problems);
    // Reads the store again when another program changed it on disk.
    void CatchUpWithDisk();
    bool Persist(const std::string& uid, std::string& error);
    bool KeepBeside(lfical::EventId id, const lfical::EventInfo& old, const Fields& was, const Fields& f,
                    std::string& error);
    // The same for one occurrence whose fields `was` come from the event
    // `from` (its exception, or the series): ours becomes a one-off.
    bool KeepOccurrenceBeside(lfical::EventId from, const std::string& seriesUid, const Fields& was,
                              const Fields& f, std::string& error);
    bool CopyOccurrence(lfical::EventId from, const Fields& was, const Fields& f, std::string& copyUid,
                        std::string& error);
    // Ours as a new appointment, its original deleted by another program.
    bool KeepAlone(const Fields& f, const Pattern* pattern, std::string& error);
    // Whether another program changed what the caller read as `base`
    // (and the caller's version differs from the one now stored).
    static bool ChangedMeanwhile(const Fields* base, Fields now, const Fields& f);
    // The edit that turns `was` (read from `old`) into f: only changed
    // fields are set, so everything else keeps its bytes. Returns the clock
    // the start is written in.
    lfical::Time BuildEdit(bool isNew, const lfical::EventInfo& old, const Fields& was, const Fields& f,
                           lfical::EventEdit& e) const;
    ItemSnapshot SnapshotOf(lfical::EventId id) const;
    ItemSnapshot SnapshotOf(const lfical::EventInfo& info) const;
    ItemSnapshot SnapshotOf(const lfical::Occurrence& o) const;
    LocalSecs ToLocal(const lfical::Time& t) const;
    lfical::Time FromLocal(LocalSecs s, const lfical::Time& like) const;
    // texts false leaves the subject, location and notes out.
    void FillFields(const lfical::EventInfo& info, Fields& f, bool texts = true) const;

    mutable std::recursive_mutex mu_;
    lfical::Zone local_;
    std::unique_ptr<lfical::Store> ical_;
    std::string path_;
    bool directory_ = false;
    // Each OID with an event of its UID, in order of OID; the UIDs whose OID
    // is not their hash; each event's OID by its id (the overrides' is their
    // series').
    std::vector<std::pair<std::uint32_t, lfical::EventId>> oidEvent_;
    std::vector<std::pair<std::string, std::uint32_t>> rehashed_;
    std::vector<std::uint32_t> oidOf_;
    std::uint64_t version_ = 0;
    mutable std::vector<std::unique_ptr<EventPart>> parts_;
    mutable std::vector<FoundItem> spare_;
    // The engine's answer to the query being made, its room kept for the next.
    mutable std::vector<lfical::Occurrence> occurrences_;
    std::vector<std::string> conflicts_;
    std::uint32_t keptAlone_ = 0;
    std::set<std::string> toldProblems_;
    std::vector<std::string> newProblems_;
};

// UTF-8 <-> wide text, for either width of wchar_t.
std::wstring WideFromUtf8(const std::string& s);
std::string Utf8FromWide(const std::wstring& w);
// The names in a comma-separated category list, trimmed, empty ones left out, as written.
std::vector<std::wstring> CategoryNames(const std::wstring& list);

}  // namespace poom
