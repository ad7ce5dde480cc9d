// What an operation of the file library threw, as one line that a test compares: "CLASS FUNCTION PATH", the
// path below the folder if one is given; "" when it threw nothing.
#pragma once

#include <cstring>
#include <string>

#include <kelstdmt/filelib.h>
#include <kelstdmt/kel.h>

template <class Action>
std::string failure(Action action, const std::string &folder = "") {
    try {
        action();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        auto *failed = fsXException::cast(thrown);
        std::string text = failed->getrtti()->getname().Str() + std::strlen("filelib::");
        text.append(" ").append(kel::view(failed->getFunc()->getName())).append(" ");
        std::string path = failed->getPath().IsNull() ? "(null)" : failed->getPath().Str();
        const std::string above = fsPathToNative((folder + "/").c_str()).Str();
        if (!folder.empty() && path.starts_with(above)) path.erase(0, above.size());
        return text + path;
    }
    return {};
}
