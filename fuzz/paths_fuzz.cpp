// Path arithmetic on two texts: whatever they hold, results are short and have one kind of separator, and the
// pieces of a path join back to it.
#include <kelstdmt/filelib_paths.h>
#include <kelstdmt/kel.h>

#include "fuzzing.h"

namespace {

using fuzz::require, std::string;

// Null for a refusal as well as for the null string.
struct answer {
    bool refused = false, null = true;
    string text = {};
};

template <class Function, class... Paths>
answer ask(Function function, const Paths &...paths) {
    try {
        const xstring text = function(paths.c_str()...);
        return {false, bool(text.IsNull()), string(std::string_view(text))};
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        return {.refused = true};
    }
}

template <class Function, class... Paths>
answer normal(Function function, const Paths &...paths) {
    answer result = ask(function, paths...);
    require(result.text.size() <= fsMaxPath, "too long:", result.text);
    require(result.text.find('/') == string::npos, "a forward slash:", result.text);
    return result;
}

// A head and what is behind its separator, which a root keeps.
void check_pieces(const string &whole, const answer &head, const answer &tail) {
    if (head.null) return;
    const bool keeps = head.text.ends_with('\\') && whole.size() == head.text.size() + tail.text.size();
    require(head.text + (keeps ? "" : "\\") + tail.text == whole, "pieces do not join to:", whole);
}

void check_one(const string &path) {
    const answer native = normal(fsPathToNative, path);
    require(native.refused == (path.size() > fsMaxPath), "length:", path);
    const answer head_path = normal(fsGetHeadPath, path), tail_entry = normal(fsGetTailEntry, path),
                 head_entry = normal(fsGetHeadEntry, path), tail_path = normal(fsGetTailPath, path);
    const bool remote = path.find("::") != string::npos;
    require(head_path.refused == (remote || native.refused), "refusal:", path);
    check_pieces(native.text, head_path, tail_entry);
    if (native.text.find('\\') != string::npos)
        check_pieces(native.text, head_entry, tail_path);
    else if (!head_path.refused)
        require(head_path.null && tail_path.null && tail_entry.text == head_entry.text &&
                    (head_entry.null || head_entry.text == native.text),
                "without a cut:", path);
    const answer address = ask(fsGetAddress, path), local = ask(fsGetLocalPath, path);
    require(address.null == !remote, "address:", path);
    if (!remote || local.refused || local.text.find("::") != string::npos) return;
    string expected = path;
    std::replace(expected.begin(), expected.end(), '/', '\\');
    const answer again = ask(fsMkRemPath, address.text, local.text);
    require(again.refused || address.text.find('/') != string::npos || again.text == expected,
            "remote path:", path);
}

void check_two(const string &a, const string &b) {
    const bool fits = a.size() + 1 + b.size() <= fsMaxPath;
    const bool is_tail = !fsIsPathAbsolute(b.c_str()) && b.find("::") == string::npos;
    require(normal(fsCatPaths, a, b).refused == !(fits && is_tail), "join:", a, b);
    const answer shared = normal(fsIntersectPaths, a, b), back = normal(fsIntersectPaths, b, a);
    require(shared.text == back.text && shared.null == back.null, "one way round:", a, b);
    if (shared.null) return;
    for (const string &path : {a, b}) {
        const string native = normal(fsPathToNative, path).text;
        require(native.starts_with(shared.text), "not shared:", a, b);
        require(native.size() == shared.text.size() || shared.text.ends_with('\\') ||
                    native[shared.text.size()] == '\\',
                "half a component:", a, b);
    }
    const answer same = normal(fsIntersectPaths, a, shared.text);
    require(same.refused || same.text == shared.text, "not stable:", a, b);
}

}  // namespace

// The two paths have a line end between them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const string text = fuzz::Input(data, size).text();
    const std::size_t cut = std::min(text.find('\n'), text.size());
    const string a = text.substr(0, cut), b = text.substr(std::min(cut + 1, text.size()));
    check_one(a);
    check_one(b);
    check_two(a, b);
    return 0;
}
