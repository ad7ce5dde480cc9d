// The whole C++ interface of kelstdmt.
#pragma once

#include <kelstdmt/cadapt.h>
#include <kelstdmt/containers.h>
#include <kelstdmt/declare.h>
#include <kelstdmt/eventlib.h>
#include <kelstdmt/iolib.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/kelstdmt_c.h>
#include <kelstdmt/printlib.h>
#include <kelstdmt/regexp.h>
#include <kelstdmt/strlib.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_event.h>
#include <kelstdmt/vumrt_stream.h>
#include <kelstdmt/vumtext.h>
#include <kelstdmt/xany.h>
#include <kelstdmt/xbasic.h>
#include <kelstdmt/xdictionary.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xrtti.h>
#include <kelstdmt/xsequence.h>
#include <kelstdmt/xstring.h>
#include <kelstdmt/xtypes.h>
