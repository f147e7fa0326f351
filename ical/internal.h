// Pieces shared by the engine's own files; not part of the server's API.
#pragma once

#include <cstring>

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

inline bool eqUpper(std::string_view s, std::string_view upper)
{
    if (s.size() != upper.size())
        return false;
    for (size_t i = 0; i < s.size(); ++i) {
        char c = s[i];
        if (c >= 'a' && c <= 'z')
            c = char(c - 32);
        if (c != upper[i])
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

// Unfolds CRLF or bare LF lines; a continuation starts with a space or tab.
// Text is a view into the buffer unless the line was folded. A reader made
// with unfold = false leaves folded lines as their first physical line
// (text) and unfolds only when asked, which spares the copy for the many
// long lines whose value the caller skips.
class LineReader {
public:
    LineReader(std::string_view buf, size_t pos = 0, int line = 1, bool unfold = true)
        : buf_(buf), pos_(pos), line_(line), unfold_(unfold)
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
        size_t e = lineEnd(pos_);
        size_t next = e < n ? e + 1 : n;
        size_t ce = (e > pos_ && base[e - 1] == '\r') ? e - 1 : e;
        ++line_;
        out.text = std::string_view(base + pos_, ce - pos_);
        out.folded = next < n && (base[next] == ' ' || base[next] == '\t');
        while (next < n && (base[next] == ' ' || base[next] == '\t')) {
            next = lineEnd(next);
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
    size_t pos_;
    int line_;
    bool unfold_;
    std::string scratch_;
};

struct LineParts {
    std::string_view name, params, value;
};

// Splits NAME;PARAMS:VALUE; the value starts at the first ':' outside quotes.
inline bool splitLine(std::string_view t, LineParts& out)
{
    size_t i = 0;
    while (i < t.size() && t[i] != ';' && t[i] != ':')
        ++i;
    if (i == 0 || i == t.size())
        return false;
    out.name = t.substr(0, i);
    for (char c : out.name)
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'))
            return false;
    size_t ps = i;
    bool q = false;
    for (; i < t.size(); ++i) {
        char c = t[i];
        if (c == '"')
            q = !q;
        else if (c == ':' && !q)
            break;
    }
    if (i == t.size())
        return false;
    out.params = t.substr(ps, i - ps);
    out.value = t.substr(i + 1);
    return true;
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
