// Path arithmetic on two texts: whatever they hold, results are short and have one kind of separator, and the
// pieces of a path join back to it.
#include <kelstdmt/filelib_paths.h>
#include <kelstdmt/kel.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void require(bool holds, const char *what, const std::string &path) {
    if (holds) return;
    std::fprintf(stderr, "%s: \"%s\"\n", what, path.c_str());
    std::abort();
}

// Null for a refusal as well as for the null string.
struct answer {
    bool refused = false, null = true;
    std::string text;
};

template <class Function, class... Paths>
answer ask(Function function, Paths... paths) {
    answer result;
    try {
        xstring text = function(paths...);
        result.null = text.IsNull();
        result.text = std::string(std::string_view(text));
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        result.refused = true;
    }
    return result;
}

template <class Function, class... Paths>
answer normal(Function function, Paths... paths) {
    answer result = ask(function, paths...);
    require(result.text.size() <= fsMaxPath, "too long", result.text);
    require(result.text.find('/') == result.text.npos, "a forward slash", result.text);
    return result;
}

// A head and what is behind its separator, which a root keeps.
void check_pieces(const std::string &whole, const answer &head, const answer &tail, bool head_is_all) {
    if (head.null) return;
    std::string joined = head.text;
    if (!head_is_all && !(joined.ends_with('\\') && whole.size() == joined.size() + tail.text.size()))
        joined += '\\';
    if (!head_is_all) joined += tail.text;
    require(joined == whole, "pieces do not join to the path", whole);
}

void check_one(const std::string &path) {
    const char *text = path.c_str();
    answer native = normal(fsPathToNative, text);
    require(native.refused == (path.size() > fsMaxPath), "length", path);
    answer head_path = normal(fsGetHeadPath, text), tail_entry = normal(fsGetTailEntry, text);
    answer head_entry = normal(fsGetHeadEntry, text), tail_path = normal(fsGetTailPath, text);
    bool remote = path.find("::") != path.npos;
    require(head_path.refused == (remote || native.refused), "refusal", path);
    bool separated = native.text.find('\\') != std::string::npos;
    check_pieces(native.text, head_path, tail_entry, false);
    check_pieces(native.text, head_entry, tail_path, !separated);
    if (!remote && !native.refused && !separated)
        require(head_path.null && tail_path.null && tail_entry.text == head_entry.text, "without a cut",
                path);
    answer address = ask(fsGetAddress, text), local = ask(fsGetLocalPath, text);
    require(address.null == !remote, "address", path);
    if (remote && !local.refused && local.text.find("::") == std::string::npos) {
        answer again = ask(fsMkRemPath, address.text.c_str(), local.text.c_str());
        std::string expected = path;
        std::replace(expected.begin(), expected.end(), '/', '\\');
        if (!again.refused && address.text.find('/') == std::string::npos)
            require(again.text == expected, "remote path", path);
    }
}

void check_two(const std::string &a, const std::string &b) {
    answer joined = normal(fsCatPaths, a.c_str(), b.c_str());
    bool fits = a.size() + 1 + b.size() <= fsMaxPath;
    bool is_tail = !fsIsPathAbsolute(b.c_str()) && b.find("::") == b.npos;
    require(joined.refused == !(fits && is_tail), "join", a + " + " + b);
    answer shared = normal(fsIntersectPaths, a.c_str(), b.c_str());
    answer back = normal(fsIntersectPaths, b.c_str(), a.c_str());
    require(shared.text == back.text && shared.null == back.null, "one way round", a + " & " + b);
    if (shared.null) return;
    for (const std::string &path : {a, b}) {
        answer native = normal(fsPathToNative, path.c_str());
        require(native.text.starts_with(shared.text), "not shared", a + " & " + b);
        bool whole = native.text.size() == shared.text.size() || shared.text.ends_with('\\') ||
                     native.text[shared.text.size()] == '\\';
        require(whole, "half a component", a + " & " + b);
    }
    answer same = normal(fsIntersectPaths, a.c_str(), shared.text.c_str());
    require(same.refused || same.text == shared.text, "not stable", a + " & " + b);
}

}  // namespace

// The two paths have a line end between them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    text = text.c_str();
    std::size_t cut = std::min(text.find('\n'), text.size());
    std::string a = text.substr(0, cut), b = text.substr(std::min(cut + 1, text.size()));
    check_one(a);
    check_one(b);
    check_two(a, b);
    return 0;
}
