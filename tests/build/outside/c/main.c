/* A C program that knows only the installed library. */
#include <stdio.h>
#include <string.h>

#include <kelstdmt/kelstdmt_c.h>

int main(void) {
    xdummy_c_struct *texts = xstringsequence_create();
    const char *text, *type;
    int equal;
    xstringsequence_set(texts, 1, "a text");
    text = xstringsequence_get(texts, 1);
    equal = strcmp(text, "a text") == 0 && xstringsequence_get(texts, 2) == XTEXT_UNINIT_C;
    xstrunlock_c(text);
    type = xgetexctypename_c();
    equal = equal && strcmp(type, "kellib::XInvalidSeqIndex") == 0;
    xstrunlock_c(type);
    xcleanupexc_c();
    xrcrelease_c(texts);
    if (!equal) fprintf(stderr, "the sequence or the slot is not as expected\n");
    return equal ? 0 : 1;
}
