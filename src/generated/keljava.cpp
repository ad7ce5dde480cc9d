// Descriptors of the transport layer's exceptions, module keljava.
#include <kelstdmt/declare.h>

KEL_DEFINE_EXCEPTION(xportXCannotConnect, "keljava::XCannotConnect", kel::uncounted)
KEL_DEFINE_EXCEPTION(xportXMsgStringTooLong, "keljava::XMsgStringTooLong", kel::uncounted)
KEL_DEFINE_EXCEPTION(xportXFlushFailed, "keljava::XFlushFailed", kel::uncounted)
KEL_DEFINE_EXCEPTION(xportXNullInNonOptArg, "keljava::XNullInNonOptArg", kel::uncounted)
KEL_DEFINE_EXCEPTION(xportXTimeout, "keljava::XTimeout", kel::uncounted)
