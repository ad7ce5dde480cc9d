// What an operation of the file library threw, as one line that a test compares: "CLASS FUNCTION PATH", or
// "" when it threw nothing.
#pragma once

#include <string>

#include <kelstdmt/filelib_exceptions.h>
#include <kelstdmt/kel.h>

template <class Action>
std::string failure(Action action) {
    try {
        action();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        auto *failed = fsXException::cast(thrown);
        std::string text = failed->getrtti()->getname().Str();
        text.append(" ").append(kel::view(failed->getFunc()->getName())).append(" ");
        return text + (failed->getPath().IsNull() ? "(null)" : failed->getPath().Str());
    }
    return {};
}
