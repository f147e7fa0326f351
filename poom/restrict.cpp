#include "restrict.h"

#include <algorithm>
#include <climits>
#include <cwchar>
#include <cwctype>

namespace poom {

namespace {

bool IsSpace(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }
bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

std::wstring Upper(std::wstring s) {
    for (auto& c : s) c = static_cast<wchar_t>(std::towupper(c));
    return s;
}

std::wstring Trim(const std::wstring& s) {
    size_t b = 0, e = s.size();
    while (b < e && IsSpace(s[b])) ++b;
    while (e > b && IsSpace(s[e - 1])) --e;
    return s.substr(b, e - b);
}

// Reads up to maxDigits digits at text[pos]; false when there are none.
bool ReadNumber(const std::wstring& text, size_t& pos, int maxDigits, int& value, int* digits = nullptr) {
    int n = 0;
    value = 0;
    while (pos < text.size() && IsDigit(text[pos]) && n < maxDigits) {
        value = value * 10 + (text[pos] - L'0');
        ++pos;
        ++n;
    }
    if (digits) *digits = n;
    return n > 0;
}

// A time after the date: H[:mm[:ss]] with an optional AM/PM marker (either
// ':' or '.' between the parts, as locales write them).
bool ParseTime(const std::wstring& text, size_t pos, LocalSecs& secs) {
    int h = 0, m = 0, s = 0;
    if (!ReadNumber(text, pos, 2, h)) return false;
    if (pos < text.size() && (text[pos] == L':' || text[pos] == L'.')) {
        ++pos;
        if (!ReadNumber(text, pos, 2, m)) return false;
        if (pos < text.size() && (text[pos] == L':' || text[pos] == L'.')) {
            ++pos;
            if (!ReadNumber(text, pos, 2, s)) return false;
        }
    }
    while (pos < text.size() && IsSpace(text[pos])) ++pos;
    std::wstring marker = Upper(text.substr(pos));
    marker.erase(std::remove(marker.begin(), marker.end(), L'.'), marker.end());
    if (marker == L"AM" || marker == L"A") {
        if (h < 1 || h > 12) return false;
        if (h == 12) h = 0;
    } else if (marker == L"PM" || marker == L"P") {
        if (h < 1 || h > 12) return false;
        if (h != 12) h += 12;
    } else if (!marker.empty()) {
        return false;
    }
    if (h > 23 || m > 59 || s > 59) return false;
    secs = h * 3600 + m * 60 + s;
    return true;
}

}  // namespace

DatePicture::DatePicture(const std::wstring& picture, std::vector<std::wstring> monthNames)
    : monthNames_(std::move(monthNames)) {
    for (auto& n : monthNames_) n = Upper(n);
    for (size_t i = 0; i < picture.size();) {
        wchar_t c = picture[i];
        size_t j = i;
        while (j < picture.size() && picture[j] == c) ++j;
        if (c == L'd' && j - i <= 2) {
            pieces_.push_back({Field::Day, L""});
        } else if (c == L'M' && j - i <= 2) {
            pieces_.push_back({Field::Month, L""});
        } else if (c == L'y') {
            pieces_.push_back({Field::Year, L""});
        } else if (c == L'\'') {
            // Quoted literal text in the picture.
            size_t k = i + 1;
            std::wstring lit;
            while (k < picture.size() && picture[k] != L'\'') lit += picture[k++];
            if (!lit.empty()) pieces_.push_back({Field::Literal, lit});
            j = k < picture.size() ? k + 1 : k;
        } else if (c == L'M') {
            // MMM and MMMM: the month by name (or, without names, by number).
            pieces_.push_back({monthNames_.empty() ? Field::Month : Field::MonthName, L""});
        } else if (c == L'd' || c == L'g') {
            // Day names and eras say nothing the numbers do not; they are
            // skipped as text.
            pieces_.push_back({Field::Literal, L"*"});
        } else {
            pieces_.push_back({Field::Literal, picture.substr(i, j - i)});
        }
        i = j;
    }
    bool hasDay = false, hasMonth = false, hasYear = false;
    for (auto& p : pieces_) {
        hasDay |= p.field == Field::Day;
        hasMonth |= p.field == Field::Month || p.field == Field::MonthName;
        hasYear |= p.field == Field::Year;
    }
    if (!hasDay || !hasMonth || !hasYear) {
        pieces_.clear();
        pieces_.push_back({Field::Month, L""});
        pieces_.push_back({Field::Literal, L"/"});
        pieces_.push_back({Field::Day, L""});
        pieces_.push_back({Field::Literal, L"/"});
        pieces_.push_back({Field::Year, L""});
    }
}

bool DatePicture::Parse(const std::wstring& raw, LocalSecs& out, bool& hasTime) const {
    std::wstring text = Trim(raw);
    size_t pos = 0;
    int day = -1, month = -1, year = -1;
    for (size_t i = 0; i < pieces_.size(); ++i) {
        const Piece& p = pieces_[i];
        if (p.field == Field::Literal && p.literal == L"*") {
            // A day name or era: skip the letters.
            while (pos < text.size() && IsSpace(text[pos])) ++pos;
            while (pos < text.size() && !IsDigit(text[pos]) && !IsSpace(text[pos]) && text[pos] != L',') ++pos;
            continue;
        }
        if (p.field == Field::MonthName) {
            while (pos < text.size() && IsSpace(text[pos])) ++pos;
            // The longest name that matches wins ("JUNE" before "JUN").
            size_t best = 0;
            for (size_t k = 0; k < monthNames_.size(); ++k) {
                const std::wstring& n = monthNames_[k];
                if (n.empty() || n.size() <= best) continue;
                if (Upper(text.substr(pos, n.size())) == n) {
                    best = n.size();
                    month = static_cast<int>(k % 12) + 1;
                }
            }
            if (best == 0) return false;
            pos += best;
            continue;
        }
        if (p.field == Field::Literal) {
            // Separators: the picture's own text, compared loosely so that
            // "1.11.2026" and "1.11.2026" with a trailing space both read.
            std::wstring lit = Trim(p.literal);
            while (pos < text.size() && IsSpace(text[pos])) ++pos;
            if (lit.empty()) continue;
            if (text.compare(pos, lit.size(), lit) != 0) {
                // The final literal of a picture like "dd.MM.yyyy." may be absent.
                if (i + 1 == pieces_.size()) continue;
                return false;
            }
            pos += lit.size();
            continue;
        }
        while (pos < text.size() && IsSpace(text[pos])) ++pos;
        int value = 0, digits = 0;
        if (!ReadNumber(text, pos, p.field == Field::Year ? 4 : 2, value, &digits)) return false;
        if (p.field == Field::Day) day = value;
        if (p.field == Field::Month) month = value;
        if (p.field == Field::Year) {
            // Two-digit years fall in 1930..2029, as Windows reads them.
            if (digits <= 2) value += value < 30 ? 2000 : 1900;
            year = value;
        }
    }
    if (year < 100 || year > 9999 || month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month))
        return false;
    LocalSecs secs = DaysFromCivil(year, month, day) * kSecsPerDay;
    while (pos < text.size() && IsSpace(text[pos])) ++pos;
    hasTime = false;
    if (pos < text.size()) {
        LocalSecs t = 0;
        if (!ParseTime(text, pos, t)) return false;
        secs += t;
        hasTime = true;
    }
    out = secs;
    return true;
}

std::int64_t LastDayOf(LocalSecs start, LocalSecs end) {
    if (end > start && end % kSecsPerDay == 0) return DayOf(end - 1);
    return DayOf(end);
}

// ---------------------------------------------------------------------------

namespace {

enum class Kind { Date, String, Number, Bool };
enum class Op { Eq, Ne, Lt, Le, Gt, Ge };

struct PropInfo {
    const wchar_t* name;
    Prop prop;
    Kind kind;
};

const PropInfo kProps[] = {
    {L"START", Prop::Start, Kind::Date},
    {L"END", Prop::End, Kind::Date},
    {L"SUBJECT", Prop::Subject, Kind::String},
    {L"LOCATION", Prop::Location, Kind::String},
    {L"CATEGORIES", Prop::Categories, Kind::String},
    {L"BODY", Prop::Body, Kind::String},
    {L"ALLDAYEVENT", Prop::AllDayEvent, Kind::Bool},
    {L"BUSYSTATUS", Prop::BusyStatus, Kind::Number},
    {L"SENSITIVITY", Prop::Sensitivity, Kind::Number},
    {L"DURATION", Prop::Duration, Kind::Number},
    {L"ISRECURRING", Prop::IsRecurring, Kind::Bool},
    {L"REMINDERSET", Prop::ReminderSet, Kind::Bool},
    {L"REMINDERMINUTESBEFORESTART", Prop::ReminderMinutesBeforeStart, Kind::Number},
    {L"OID", Prop::Oid, Kind::Number},
    {L"MEETINGSTATUS", Prop::MeetingStatus, Kind::Number},
};

template <class T>
bool Compare(Op op, const T& a, const T& b) {
    switch (op) {
    case Op::Eq: return a == b;
    case Op::Ne: return !(a == b);
    case Op::Lt: return a < b;
    case Op::Le: return !(b < a);
    case Op::Gt: return b < a;
    case Op::Ge: return !(a < b);
    }
    return false;
}

}  // namespace

struct Restriction::Node {
    enum class Type { And, Or, Cmp } type = Type::Cmp;
    std::unique_ptr<Node> left, right;
    // Comparison.
    Prop prop = Prop::Start;
    Kind kind = Kind::Date;
    Op op = Op::Eq;
    LocalSecs date = 0;
    bool hasTime = false;
    std::wstring text;  // upper-cased for case-insensitive comparison
    long number = 0;

    bool Eval(const RestrictRecord& r) const {
        if (type == Type::And) return left->Eval(r) && right->Eval(r);
        if (type == Type::Or) return left->Eval(r) || right->Eval(r);
        switch (kind) {
        case Kind::Date: {
            LocalSecs v = prop == Prop::Start ? r.start : r.end;
            if (hasTime) return Compare(op, v, date);
            std::int64_t day = prop == Prop::Start ? DayOf(r.start) : LastDayOf(r.start, r.end);
            return Compare(op, day, DayOf(date));
        }
        case Kind::String: {
            const std::wstring& v = prop == Prop::Subject ? r.subject
                                    : prop == Prop::Location ? r.location
                                    : prop == Prop::Categories ? r.categories : r.body;
            return Compare(op, Upper(v), text);
        }
        case Kind::Bool: {
            long v = prop == Prop::AllDayEvent ? r.allDay : prop == Prop::IsRecurring ? r.isRecurring : r.reminderSet;
            return Compare(op, v != 0 ? 1L : 0L, number != 0 ? 1L : 0L);
        }
        case Kind::Number: {
            long v = prop == Prop::BusyStatus ? r.busyStatus
                     : prop == Prop::Sensitivity ? r.sensitivity
                     : prop == Prop::Duration ? r.duration
                     : prop == Prop::ReminderMinutesBeforeStart ? r.reminderMinutes
                     : prop == Prop::Oid ? r.oid : r.meetingStatus;
            return Compare(op, v, number);
        }
        }
        return false;
    }

    bool AsksTexts() const {
        if (type != Type::Cmp) return left->AsksTexts() || right->AsksTexts();
        return prop == Prop::Subject || prop == Prop::Location || prop == Prop::Body || prop == Prop::Categories;
    }

    void Bounds(LocalSecs& lo, LocalSecs& hi) const {
        lo = INT64_MIN;
        hi = INT64_MAX;
        if (type != Type::Cmp) {
            LocalSecs l1, h1, l2, h2;
            left->Bounds(l1, h1);
            right->Bounds(l2, h2);
            if (type == Type::And) {
                lo = std::max(l1, l2);
                hi = std::min(h1, h2);
            } else {
                lo = std::min(l1, l2);
                hi = std::max(h1, h2);
            }
            return;
        }
        if (kind != Kind::Date) return;
        // A date-only literal stands for its whole day.
        LocalSecs first = hasTime ? date : DayOf(date) * kSecsPerDay;
        LocalSecs last = hasTime ? date : DayOf(date) * kSecsPerDay + kSecsPerDay;
        bool upper = op == Op::Lt || op == Op::Le || op == Op::Eq;
        bool lower = op == Op::Gt || op == Op::Ge || op == Op::Eq;
        // Items end at or after they start: an upper bound on the end is
        // one on the start too, and a lower bound on the start one on the end.
        if (upper) hi = last;
        if (lower) lo = first;
    }
};

namespace {

class Parser {
public:
    Parser(const std::wstring& t, const DatePicture& p) : text_(t), picture_(p) {}

    std::unique_ptr<Restriction::Node> Run(std::string& error) {
        auto node = ParseOr();
        if (node) {
            SkipSpace();
            if (pos_ != text_.size()) {
                error_ = "unexpected text after the restriction";
                node.reset();
            }
        }
        error = error_;
        return node;
    }

private:
    using NodePtr = std::unique_ptr<Restriction::Node>;

    void SkipSpace() {
        while (pos_ < text_.size() && IsSpace(text_[pos_])) ++pos_;
    }

    // A keyword (AND/OR) at the position, as a whole word.
    bool AtKeyword(size_t at, const wchar_t* kw) const {
        size_t n = std::wcslen(kw);
        if (at + n > text_.size()) return false;
        for (size_t i = 0; i < n; ++i)
            if (std::towupper(text_[at + i]) != static_cast<wint_t>(kw[i])) return false;
        if (at + n < text_.size()) {
            wchar_t c = text_[at + n];
            if (!IsSpace(c) && c != L'(' && c != L'[') return false;
        }
        return true;
    }

    NodePtr Join(Restriction::Node::Type t, NodePtr a, NodePtr b) {
        auto n = std::make_unique<Restriction::Node>();
        n->type = t;
        n->left = std::move(a);
        n->right = std::move(b);
        return n;
    }

    NodePtr ParseOr() {
        auto left = ParseAnd();
        while (left) {
            SkipSpace();
            if (!AtKeyword(pos_, L"OR")) break;
            pos_ += 2;
            auto right = ParseAnd();
            if (!right) return nullptr;
            left = Join(Restriction::Node::Type::Or, std::move(left), std::move(right));
        }
        return left;
    }

    NodePtr ParseAnd() {
        auto left = ParseFactor();
        while (left) {
            SkipSpace();
            if (!AtKeyword(pos_, L"AND")) break;
            pos_ += 3;
            auto right = ParseFactor();
            if (!right) return nullptr;
            left = Join(Restriction::Node::Type::And, std::move(left), std::move(right));
        }
        return left;
    }

    NodePtr ParseFactor() {
        SkipSpace();
        if (++depth_ > 100) return Fail("restriction nested too deeply");
        struct Depth {
            int& d;
            ~Depth() { --d; }
        } guard{depth_};
        if (pos_ < text_.size() && text_[pos_] == L'(') {
            ++pos_;
            auto inner = ParseOr();
            if (!inner) return nullptr;
            SkipSpace();
            if (pos_ >= text_.size() || text_[pos_] != L')') return Fail("missing ')'");
            ++pos_;
            return inner;
        }
        return ParseComparison();
    }

    NodePtr Fail(const char* why) {
        if (error_.empty()) error_ = why;
        return nullptr;
    }

    NodePtr ParseComparison() {
        if (pos_ >= text_.size() || text_[pos_] != L'[') return Fail("expected '[Property]'");
        size_t close = text_.find(L']', pos_);
        if (close == std::wstring::npos) return Fail("missing ']'");
        std::wstring name = Upper(Trim(text_.substr(pos_ + 1, close - pos_ - 1)));
        pos_ = close + 1;
        auto node = std::make_unique<Restriction::Node>();
        bool known = false;
        for (const auto& p : kProps) {
            if (name == p.name) {
                node->prop = p.prop;
                node->kind = p.kind;
                known = true;
            }
        }
        if (!known) return Fail("unknown property");
        SkipSpace();
        auto at = [&](const wchar_t* s) { return text_.compare(pos_, std::wcslen(s), s) == 0; };
        if (at(L"<>")) { node->op = Op::Ne; pos_ += 2; }
        else if (at(L"<=")) { node->op = Op::Le; pos_ += 2; }
        else if (at(L">=")) { node->op = Op::Ge; pos_ += 2; }
        else if (at(L"<")) { node->op = Op::Lt; pos_ += 1; }
        else if (at(L">")) { node->op = Op::Gt; pos_ += 1; }
        else if (at(L"=")) { node->op = Op::Eq; pos_ += 1; }
        else return Fail("expected a comparison operator");
        SkipSpace();

        std::wstring value;
        if (pos_ < text_.size() && (text_[pos_] == L'"' || text_[pos_] == L'\'')) {
            wchar_t q = text_[pos_++];
            bool closed = false;
            while (pos_ < text_.size()) {
                if (text_[pos_] == q) {
                    if (pos_ + 1 < text_.size() && text_[pos_ + 1] == q) {
                        value += q;  // a doubled quote stands for itself
                        pos_ += 2;
                        continue;
                    }
                    ++pos_;
                    closed = true;
                    break;
                }
                value += text_[pos_++];
            }
            if (!closed) return Fail("unterminated quoted value");
        } else {
            // An unquoted value runs to the next AND/OR, ')' or the end; a
            // date with a time ("11/1/2026 10:00 AM") has blanks inside.
            size_t start = pos_;
            while (pos_ < text_.size() && text_[pos_] != L')') {
                if (IsSpace(text_[pos_])) {
                    size_t k = pos_;
                    while (k < text_.size() && IsSpace(text_[k])) ++k;
                    if (AtKeyword(k, L"AND") || AtKeyword(k, L"OR")) break;
                }
                ++pos_;
            }
            value = Trim(text_.substr(start, pos_ - start));
            if (value.empty()) return Fail("missing value");
        }

        switch (node->kind) {
        case Kind::Date:
            if (!picture_.Parse(value, node->date, node->hasTime)) return Fail("not a date in the short date form");
            break;
        case Kind::String:
            node->text = Upper(value);
            break;
        case Kind::Bool:
        case Kind::Number: {
            std::wstring v = Upper(Trim(value));
            if (node->kind == Kind::Bool && v == L"TRUE") { node->number = 1; break; }
            if (node->kind == Kind::Bool && v == L"FALSE") { node->number = 0; break; }
            size_t i = 0;
            bool neg = false;
            if (i < v.size() && (v[i] == L'-' || v[i] == L'+')) neg = v[i++] == L'-';
            if (i >= v.size()) return Fail("not a number");
            long long n = 0;
            for (; i < v.size(); ++i) {
                if (!IsDigit(v[i])) return Fail("not a number");
                n = n * 10 + (v[i] - L'0');
                if (n > 0xFFFFFFFFLL) return Fail("number out of range");
            }
            // OIDs are 32-bit and may be written unsigned.
            node->number = static_cast<long>(static_cast<std::int32_t>(static_cast<std::uint32_t>(neg ? -n : n)));
            break;
        }
        }
        return node;
    }

    const std::wstring& text_;
    const DatePicture& picture_;
    size_t pos_ = 0;
    int depth_ = 0;
    std::string error_;
};

}  // namespace

Restriction::Restriction() = default;
Restriction::~Restriction() = default;
Restriction::Restriction(Restriction&&) noexcept = default;
Restriction& Restriction::operator=(Restriction&&) noexcept = default;

bool Restriction::Parse(const std::wstring& text, const DatePicture& picture, std::string* error) {
    root_.reset();
    std::string why;
    if (Trim(text).empty()) {
        why = "empty restriction";
    } else {
        Parser p(text, picture);
        root_ = p.Run(why);
    }
    if (!root_ && error) *error = why.empty() ? "malformed restriction" : why;
    return root_ != nullptr;
}

bool Restriction::Matches(const RestrictRecord& r) const { return !root_ || root_->Eval(r); }

bool Restriction::AsksTexts() const { return root_ && root_->AsksTexts(); }
const lfical::DayGrid* GridOf(const std::vector<const Restriction*>& rs) {
    for (const Restriction* r : rs)
        if (r->grid) return r->grid;
    return nullptr;
}

lfical::QueryReport* ReportOf(const std::vector<const Restriction*>& rs) {
    for (const Restriction* r : rs)
        if (r->report) return r->report;
    return nullptr;
}

void Restriction::Bounds(LocalSecs& lo, LocalSecs& hi) const {
    if (!root_) {
        lo = INT64_MIN;
        hi = INT64_MAX;
        return;
    }
    root_->Bounds(lo, hi);
}

}  // namespace poom
