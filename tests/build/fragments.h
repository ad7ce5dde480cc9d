// What the pieces of code in the pages take for granted.
#include <iostream>
#include <memory>
#include <string>

#include <kelstdmt/kelstdmt.h>
#include <kelstdmt/nameserver.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_event.h>
#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/vumrt_socket.h>

extern netSocketStream *stream;
extern btkEvent *listening;
constexpr int order_to_stop = 1;

bool more_to_do();
void do_some();
void serve(btkEvent *);
void handle(int);
int complain(const std::string &);
