// Pieces shared by the engine's own files; not part of the server's API.
#pragma once

#include <cstring>
#if defined(__SSE2__) && defined(__GNUC__)
#include <emmintrin.h>
#endif

#include "ical.h"

namespace lfical {

// Calls f for each item of a comma-separated list value (RDATE, EXDATE,
// CATEGORIES and the like), empty items included.
template <class F>
inline void forEachListItem(std::string_view v, F f)
{
    size_t st = 0;
    for (size_t i = 0; i <= v.size(); ++i) {
        if (i != v.size() && v[i] != ',')
            continue;
        f(v.substr(st, i - st));
        st = i + 1;
    }
}

bool readWholeFile(const std::string& path, std::string& out);
// Writes a temporary beside path, flushes it to disk, then replaces path.
bool writeFileAtomic(const std::string& path, std::string_view bytes, std::string& error);

bool zoneFromVtimezone(const Component& vtz, Zone& out, std::string& error);

// Whether s equals `upper` (upper case) ignoring the case of ASCII letters.
inline bool eqUpper(std::string_view s, std::string_view upper)
{
    if (s.size() != upper.size())
        return false;
    for (size_t i = 0; i < s.size(); ++i) {
        char c = s[i];
        if (c != upper[i] && !(c >= 'a' && c <= 'z' && char(c - 32) == upper[i]))
            return false;
    }
    return true;
}

inline std::string toUpper(std::string_view s)
{
    std::string o(s);
    for (char& c : o)
        if (c >= 'a' && c <= 'z')
            c = char(c - 32);
    return o;
}

// One logical (unfolded) content line.
struct LineView {
    size_t begin = 0, end = 0;  // raw bytes, continuation lines and line ends included
    int line = 0;               // first physical line, 1-based
    std::string_view text;      // unfolded, no line end
    bool folded = false;
};

// Finds the line ends of a buffer in order. With SSE2 it compares 64 bytes
// at a time and keeps their '\n' positions as a bit mask, so the next line
// of a short line costs a bit scan instead of a call: a calendar is mostly
// lines of thirty bytes, and a hundred thousand events are a million lines.
class NewlineFinder {
public:
    explicit NewlineFinder(std::string_view buf) : b_(buf.data()), n_(buf.size()) {}
    // The first '\n' at or after `from`, else the buffer's size.
    size_t find(size_t from)
    {
#if defined(__SSE2__) && defined(__GNUC__)
        for (;;) {
            if (from - block_ >= 64) {
                block_ = from & ~size_t(63);
                if (block_ + 64 > n_)
                    break;
                mask_ = maskAt(block_);
            }
            uint64_t m = mask_ & (~uint64_t(0) << (from - block_));
            if (m)
                return block_ + size_t(__builtin_ctzll(m));
            from = block_ + 64;
            if (from >= n_)
                return n_;
        }
        block_ = ~size_t(0) - 64;  // the tail is searched plainly
#endif
        if (from >= n_)
            return n_;
        const void* p = memchr(b_ + from, '\n', n_ - from);
        return p ? size_t(static_cast<const char*>(p) - b_) : n_;
    }

private:
#if defined(__SSE2__) && defined(__GNUC__)
    uint64_t maskAt(size_t at) const
    {
        const __m128i nl = _mm_set1_epi8('\n');
        // The file is read once, front to back: ask for what comes next
        // early, as the hardware stops guessing at each 4 KiB page.
        __builtin_prefetch(b_ + at + 1024);
        uint64_t m = 0;
        for (int i = 0; i < 4; ++i) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b_ + at + 16 * size_t(i)));
            m |= uint64_t(uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, nl)))) << (16 * i);
        }
        return m;
    }
    size_t block_ = ~size_t(0) - 64;  // start of the block mask_ describes
    uint64_t mask_ = 0;
#endif
    const char* b_;
    size_t n_;
};

// Unfolds CRLF or bare LF lines; a continuation starts with a space or tab.
// Text is a view into the buffer unless the line was folded. A reader made
// with unfold = false leaves folded lines as their first physical line
// (text) and unfolds only when asked, which spares the copy for the many
// long lines whose value the caller skips.
class LineReader {
public:
    LineReader(std::string_view buf, size_t pos = 0, int line = 1, bool unfold = true)
        : buf_(buf), nl_(buf), pos_(pos), line_(line), unfold_(unfold)
    {
    }
    bool next(LineView& out)
    {
        const size_t n = buf_.size();
        if (pos_ >= n)
            return false;
        const char* base = buf_.data();
        out.begin = pos_;
        out.line = line_;
        size_t e = nl_.find(pos_);
        size_t next = e < n ? e + 1 : n;
        size_t ce = (e > pos_ && base[e - 1] == '\r') ? e - 1 : e;
        ++line_;
        out.text = std::string_view(base + pos_, ce - pos_);
        out.folded = next < n && (base[next] == ' ' || base[next] == '\t');
        while (next < n && (base[next] == ' ' || base[next] == '\t')) {
            next = nl_.find(next);
            next = next < n ? next + 1 : n;
            ++line_;
        }
        out.end = next;
        pos_ = next;
        if (out.folded && unfold_)
            out.text = unfold(out);
        return true;
    }
    // The whole logical line of a folded LineView.
    std::string_view unfold(const LineView& lv)
    {
        if (!lv.folded)
            return lv.text;
        scratch_.clear();
        const char* base = buf_.data();
        size_t p = lv.begin;
        bool first = true;
        while (p < lv.end) {
            size_t e = lineEnd(p);
            size_t ce = (e > p && base[e - 1] == '\r') ? e - 1 : e;
            size_t s = first ? p : p + 1;
            if (ce > s)
                scratch_.append(base + s, ce - s);
            first = false;
            p = e < buf_.size() ? e + 1 : buf_.size();
        }
        return scratch_;
    }
    size_t pos() const { return pos_; }
    int line() const { return line_; }

private:
    size_t lineEnd(size_t from) const
    {
        const void* p = memchr(buf_.data() + from, '\n', buf_.size() - from);
        return p ? size_t(static_cast<const char*>(p) - buf_.data()) : buf_.size();
    }
    std::string_view buf_;
    NewlineFinder nl_;
    size_t pos_;
    int line_;
    bool unfold_;
    std::string scratch_;
};

struct LineParts {
    std::string_view name, params, value;
};

// The first ':' or '"' in p[i..n), else n. `avail` is how many bytes may be
// read from p (at least n): with SSE2, 16 are compared at once while that
// many remain readable.
inline size_t findColonOrQuote(const char* p, size_t i, size_t n, size_t avail)
{
#if defined(__SSE2__) && defined(__GNUC__)
    for (; i < n && i + 16 <= avail; i += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        unsigned m = unsigned(_mm_movemask_epi8(
            _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(':')), _mm_cmpeq_epi8(v, _mm_set1_epi8('"')))));
        if (m) {
            size_t j = i + size_t(__builtin_ctz(m));
            return j < n ? j : n;
        }
    }
#else
    (void)avail;
#endif
    while (i < n && p[i] != ':' && p[i] != '"')
        ++i;
    return i < n ? i : n;
}

// The parameters and value of a line whose name (t[0..nameLen), already
// checked) ends at a ';' or ':'; the value starts at the first ':' outside
// quotes. `avail` is how many bytes may be read from t.data().
inline bool splitAfterName(std::string_view t, size_t nameLen, LineParts& out, size_t avail = 0)
{
    const char* p = t.data();
    const size_t n = t.size();
    if (avail < n)
        avail = n;
    size_t i = nameLen;
    bool q = false;
    for (;;) {
        i = findColonOrQuote(p, i, n, avail);
        if (i == n)
            return false;
        if (p[i] == ':' && !q)
            break;
        if (p[i] == '"')
            q = !q;
        ++i;
    }
    out.name = std::string_view(p, nameLen);
    out.params = std::string_view(p + nameLen, i - nameLen);
    out.value = std::string_view(p + i + 1, n - i - 1);
    return true;
}

// Splits NAME;PARAMS:VALUE; the value starts at the first ':' outside quotes.
inline bool splitLine(std::string_view t, LineParts& out)
{
    size_t i = 0;
    while (i < t.size() && t[i] != ';' && t[i] != ':')
        ++i;
    if (i == 0 || i == t.size())
        return false;
    for (size_t k = 0; k < i; ++k) {
        char c = t[k];
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'))
            return false;
    }
    return splitAfterName(t, i, out);
}

// First value of parameter `upperName` in ";A=x;B="y",z"; quotes removed.
inline bool findParam(std::string_view params, std::string_view upperName, std::string_view& value)
{
    size_t i = 0;
    while (i < params.size()) {
        if (params[i] != ';') {
            ++i;
            continue;
        }
        size_t ns = ++i;
        while (i < params.size() && params[i] != '=' && params[i] != ';')
            ++i;
        std::string_view name = params.substr(ns, i - ns);
        if (i >= params.size() || params[i] != '=')
            continue;
        ++i;
        size_t vs = i;
        bool quoted = i < params.size() && params[i] == '"';
        if (quoted) {
            size_t e = params.find('"', i + 1);
            if (e == std::string_view::npos)
                e = params.size();
            if (eqUpper(name, upperName)) {
                value = params.substr(i + 1, e - i - 1);
                return true;
            }
            i = e;
        }
        while (i < params.size() && params[i] != ';' && params[i] != ',') {
            if (params[i] == '"') {
                size_t e = params.find('"', i + 1);
                i = e == std::string_view::npos ? params.size() : e + 1;
            } else {
                ++i;
            }
        }
        if (!quoted && eqUpper(name, upperName)) {
            value = params.substr(vs, i - vs);
            return true;
        }
        while (i < params.size() && params[i] != ';') {
            if (params[i] == '"') {
                size_t e = params.find('"', i + 1);
                i = e == std::string_view::npos ? params.size() : e + 1;
            } else {
                ++i;
            }
        }
    }
    return false;
}

}  // namespace lfical
