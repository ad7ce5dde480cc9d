// What functions that do not throw do with a failure: its exception is printed on standard error.
#pragma once

#include <iostream>

#include <kelstdmt/xexception.h>

namespace kel::detail {

// The fields are the exception's own, up to its description.
template <class Exception, class... Fields>
void print_exception(const char *function, Fields... fields) {
    const xrchandle<kelXFunc> func(kel::construct<kelXFunc>(function));
    const xauto<Exception> exception(fields..., func.get());
    exception.Print(std::cerr);
    std::cerr.flush();
}

}  // namespace kel::detail
