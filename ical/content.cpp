// The generic component tree (used for time zones, decoding an event's
// fields and editing one event) and the file primitives.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <mutex>
#include <random>

#include "internal.h"

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace lfical {

std::string Property::param(std::string_view n) const
{
    std::string_view v;
    std::string up = toUpper(n);
    return findParam(params, up, v) ? std::string(v) : std::string();
}

bool Property::hasParam(std::string_view n) const
{
    std::string_view v;
    return findParam(params, toUpper(n), v);
}

void Property::setParam(std::string_view n, std::string_view value)
{
    // Rebuild the parameter text without `n`, then append the new value.
    std::string up = toUpper(n);
    std::string out;
    size_t i = 0;
    while (i < params.size()) {
        size_t s = i++;
        bool q = false;
        while (i < params.size() && (q || params[i] != ';')) {
            if (params[i] == '"')
                q = !q;
            ++i;
        }
        std::string_view item(params.data() + s, i - s);  // ";NAME=..."
        size_t eq = item.find('=');
        std::string_view name = item.substr(1, eq == std::string_view::npos ? std::string_view::npos : eq - 1);
        if (!eqUpper(name, up))
            out += item;
    }
    if (!value.empty()) {
        bool quote = value.find_first_of(";:,") != std::string_view::npos;
        out += ";" + std::string(n) + "=" + (quote ? "\"" : "") + std::string(value) + (quote ? "\"" : "");
    }
    params = out;
    raw.clear();
}

const Property* Component::find(std::string_view n) const
{
    for (const Property& p : props)
        if (p.name == n)
            return &p;
    return nullptr;
}

Property* Component::find(std::string_view n)
{
    for (Property& p : props)
        if (p.name == n)
            return &p;
    return nullptr;
}

std::vector<const Property*> Component::findAll(std::string_view n) const
{
    std::vector<const Property*> out;
    for (const Property& p : props)
        if (p.name == n)
            out.push_back(&p);
    return out;
}

void Component::remove(std::string_view n)
{
    for (size_t i = props.size(); i-- > 0;) {
        if (props[i].name != n)
            continue;
        props.erase(props.begin() + long(i));
        for (size_t& at : subAt)
            if (at > i)
                --at;
    }
}

Property& Component::set(std::string_view n, std::string_view value)
{
    if (Property* p = find(n)) {
        p->value = std::string(value);
        p->raw.clear();
        return *p;
    }
    Property p;
    p.name = std::string(n);
    p.value = std::string(value);
    return append(std::move(p));
}

Property& Component::append(Property p)
{
    // Sub-components written after the last property stay after it.
    for (size_t& at : subAt)
        if (at == props.size())
            ++at;
    props.push_back(std::move(p));
    return props.back();
}

namespace {
const int kMaxDepth = 32;

void problem(std::vector<Problem>* out, const std::string& file, int line, std::string msg)
{
    if (out)
        out->push_back({file, line, std::move(msg)});
}

// Reads lines into c until its END; false when the text ends first.
bool parseBody(std::string_view text, LineReader& lr, Component& c, std::vector<Problem>* problems,
               const std::string& file, int depth)
{
    LineView lv;
    while (lr.next(lv)) {
        std::string raw(text.substr(lv.begin, lv.end - lv.begin));
        LineParts lp;
        if (lv.text.empty() || !splitLine(lv.text, lp)) {
            if (!lv.text.empty())
                problem(problems, file, lv.line, "not a content line in " + c.name + "; kept as it is");
            Property p;
            p.raw = std::move(raw);
            p.line = lv.line;
            c.props.push_back(std::move(p));
            continue;
        }
        if (eqUpper(lp.name, "BEGIN") && depth < kMaxDepth) {
            Component sub;
            sub.name = toUpper(lp.value);
            sub.line = lv.line;
            sub.beginRaw = std::move(raw);
            bool closed = parseBody(text, lr, sub, problems, file, depth + 1);
            c.subAt.push_back(c.props.size());
            c.subs.push_back(std::move(sub));
            if (!closed)
                return false;
            continue;
        }
        if (eqUpper(lp.name, "END")) {
            if (toUpper(lp.value) == c.name) {
                c.endRaw = std::move(raw);
                return true;
            }
            problem(problems, file, lv.line,
                    "END:" + std::string(lp.value) + " does not close " + c.name + "; kept as it is");
        }
        Property p;
        p.name = toUpper(lp.name);
        p.params = std::string(lp.params);
        p.value = std::string(lp.value);
        p.raw = std::move(raw);
        p.line = lv.line;
        c.props.push_back(std::move(p));
    }
    return false;
}
}  // namespace

bool parseComponent(std::string_view text, Component& out, std::vector<Problem>* problems, int firstLine,
                    const std::string& file)
{
    LineReader lr(text, 0, firstLine);
    LineView lv;
    while (lr.next(lv)) {
        LineParts lp;
        if (!splitLine(lv.text, lp) || !eqUpper(lp.name, "BEGIN"))
            continue;
        out = Component();
        out.name = toUpper(lp.value);
        out.line = lv.line;
        out.beginRaw = std::string(text.substr(lv.begin, lv.end - lv.begin));
        if (!parseBody(text, lr, out, problems, file, 1))
            problem(problems, file, out.line, out.name + " begun here is not closed: the text is cut short");
        return true;
    }
    return false;
}

std::string foldLine(std::string_view s)
{
    std::string out;
    out.reserve(s.size() + s.size() / 70 * 3 + 2);
    size_t pos = 0;
    bool first = true;
    while (true) {
        size_t room = first ? 75 : 74;
        if (s.size() - pos <= room) {
            if (!first)
                out += ' ';
            out.append(s.data() + pos, s.size() - pos);
            out += "\r\n";
            return out;
        }
        size_t cut = pos + room;
        // Never start a continuation inside a UTF-8 sequence; invalid runs of
        // continuation bytes longer than a sequence are cut anyway.
        for (int back = 0; back < 3 && cut > pos + 1 && (static_cast<unsigned char>(s[cut]) & 0xC0) == 0x80; ++back)
            --cut;
        if (!first)
            out += ' ';
        out.append(s.data() + pos, cut - pos);
        out += "\r\n";
        pos = cut;
        first = false;
    }
}

std::string writeComponent(const Component& c)
{
    std::string out = c.beginRaw.empty() ? "BEGIN:" + c.name + "\r\n" : c.beginRaw;
    size_t sub = 0;
    for (size_t i = 0; i <= c.props.size(); ++i) {
        while (sub < c.subs.size() && c.subAt[sub] == i)
            out += writeComponent(c.subs[sub++]);
        if (i == c.props.size())
            break;
        const Property& p = c.props[i];
        if (!p.raw.empty())
            out += p.raw;
        else if (!p.name.empty())
            out += foldLine(p.name + p.params + ":" + p.value);
    }
    while (sub < c.subs.size())
        out += writeComponent(c.subs[sub++]);
    out += c.endRaw.empty() ? "END:" + c.name + "\r\n" : c.endRaw;
    return out;
}

bool readWholeFile(const std::string& path, std::string& out)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (!f)
        return false;
    out.clear();
    if (fseek(f, 0, SEEK_END) == 0) {
        long n = ftell(f);
        if (n > 0)
            out.reserve(size_t(n));
        fseek(f, 0, SEEK_SET);
    }
    char buf[65536];
    size_t got;
    while ((got = fread(buf, 1, sizeof buf, f)) > 0)
        out.append(buf, got);
    bool ok = !ferror(f);
    fclose(f);
    return ok;
}

bool writeFileAtomic(const std::string& path, std::string_view bytes, std::string& error)
{
    std::string tmp = path + ".lf-saving";
    FILE* f = fopen(tmp.c_str(), "wb");
    if (!f) {
        error = "cannot create " + tmp;
        return false;
    }
    bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size() && fflush(f) == 0;
#ifdef _WIN32
    ok = ok && _commit(_fileno(f)) == 0;
#else
    ok = ok && fsync(fileno(f)) == 0;
#endif
    ok = fclose(f) == 0 && ok;
    if (!ok) {
        remove(tmp.c_str());
        error = "cannot write " + tmp + " (disk full?)";
        return false;
    }
    std::error_code ec;
    // Windows refuses to replace a file while a reader has it open (another
    // calendar program or a sync tool reading the folder); such a read is
    // short, so the replace is tried again for up to two seconds.
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::filesystem::rename(tmp, path, ec);
        if (!ec)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (ec) {
        remove(tmp.c_str());
        error = "cannot replace " + path + ": " + ec.message();
        return false;
    }
    return true;
}

uint32_t oidForUid(std::string_view uid)
{
    uint32_t h = 2166136261u;
    for (char c : uid) {
        h ^= static_cast<unsigned char>(c);
        h *= 16777619u;
    }
    return h ? h : 1;
}

std::string newUuid()
{
    // The server calls in from more than one thread.
    static std::mutex lock;
    std::lock_guard<std::mutex> hold(lock);
    static std::mt19937_64 gen = [] {
        std::random_device rd;
        std::seed_seq seq{rd(), rd(), rd(), rd(),
                          unsigned(std::chrono::high_resolution_clock::now().time_since_epoch().count())};
        return std::mt19937_64(seq);
    }();
    char buf[48];
    uint64_t a = gen(), b = gen();
    // RFC 4122 version 4 layout, so other programs recognise it as random.
    snprintf(buf, sizeof buf, "%08x-%04x-4%03x-%04x-%012llx", unsigned(a >> 32), unsigned(a >> 16 & 0xffff),
             unsigned(a & 0xfff), unsigned((b >> 48 & 0x3fff) | 0x8000),
             static_cast<unsigned long long>(b & 0xffffffffffffULL));
    return buf;
}

std::string newUid()
{
    return newUuid() + "@lanternfields";
}

}  // namespace lfical
