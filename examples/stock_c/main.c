/* A shop's stock in C: dictionaries by the name of an article, sequences of names and prices, and what to do
 * when a call fails. Every hold that is taken here is given back here, so nothing is left at the end. */
#include <stdio.h>
#include <string.h>

#include <kelstdmt/kelstdmt_c.h>

/* The shop: four containers that share their keys or their order. */
struct shop {
    xdummy_c_struct *count;  /* int dictionary: pieces on the shelf */
    xdummy_c_struct *vendor; /* string dictionary */
    xdummy_c_struct *names;  /* string sequence, in the order of the price list */
    xdummy_c_struct *prices; /* real sequence, in the same order */
};

/* Reports a failure of the last call, if there was one, and empties the slot. Returns 1 for a failure. */
static int failed(const char *action) {
    const char *type, *text;
    if (!xisexc_c()) return 0;
    type = xgetexctypename_c();
    text = xgetexcdescription_c();
    printf("%s: %s (%s)\n", action, text, type);
    xstrunlock_c(type);
    xstrunlock_c(text);
    xcleanupexc_c();
    return 1;
}

static int open_shop(struct shop *shop) {
    shop->count = xintdictionary_create();
    shop->vendor = xstringdictionary_create();
    shop->names = xstringsequence_create();
    shop->prices = xrealsequence_create();
    return XISOBJECT_C(shop->count) && XISOBJECT_C(shop->vendor) && XISOBJECT_C(shop->names) &&
           XISOBJECT_C(shop->prices);
}

/* The markers are ignored, so this also closes a shop that was not opened in full. */
static void close_shop(struct shop *shop) {
    xrcrelease_c(shop->count);
    xrcrelease_c(shop->vendor);
    xrcrelease_c(shop->names);
    xrcrelease_c(shop->prices);
}

/* More pieces of an article; one that is new goes to the end of the price list. */
static void add(struct shop *shop, const char *name, int pieces, double price, const char *vendor) {
    int count = 0;
    if (xintdictionary_find(shop->count, name, &count) != 1) {
        const int last = xstringsequence_getarraysize(shop->names);
        xstringsequence_set(shop->names, last, name);
        xrealsequence_set(shop->prices, last, price);
        xstringdictionary_set(shop->vendor, name, vendor);
        count = 0; /* a search always writes: it was uninit */
    }
    xintdictionary_set(shop->count, name, count + pieces);
}

/* The article at that place of the price list leaves the shop. */
static void discard(struct shop *shop, int place) {
    const char *name = xstringsequence_get(shop->names, place);
    xintdictionary_remove(shop->count, name);
    xstringdictionary_remove(shop->vendor, name);
    xstrunlock_c(name);
    xstringsequence_removerange(shop->names, place, place + 1);
    xrealsequence_removerange(shop->prices, place, place + 1);
}

static void print_list(const struct shop *shop) {
    double total = 0;
    int i;
    for (i = 0; i < xstringsequence_getarraysize(shop->names); ++i) {
        const char *name = xstringsequence_get(shop->names, i), *vendor;
        const double price = xrealsequence_get(shop->prices, i);
        int count;
        if (xintdictionary_find(shop->count, name, &count) != 1) count = 0;
        xstringdictionary_find(shop->vendor, name, &vendor);
        printf("%3d x %-8s %6.2f  %s\n", count, name, price, XISTEXT_C(vendor) ? vendor : "(no vendor)");
        total += price * count;
        xstrunlock_c(vendor); /* also where it is a marker */
        xstrunlock_c(name);
    }
    printf("total %.2f\n", total);
}

/* A dictionary is walked by its slots, of which most are empty. */
static int all_pieces(const struct shop *shop) {
    int sum = 0, slot, count;
    for (slot = 0; slot < xgetndictelems_c(shop->count); ++slot)
        if (xintdictionary_getbyindex(shop->count, slot, &count) == 1) sum += count;
    return sum;
}

static void show(const char *title, xdummy_c_struct *object) {
    printf("%s:\n", title);
    fflush(stdout); /* the framework's output does not pass through stdio */
    xprint_c(object);
    printf("\n");
}

static void provoke(const struct shop *shop) {
    xdummy_c_struct *error;
    double price;

    price = xrealsequence_get(shop->prices, 99);
    if (failed("price of article 99"))
        printf("  the price is %s\n", price == XREAL_UNINIT_C ? "uninit" : "?");
    xintdictionary_set(shop->names, "a sequence is no dictionary", 1);
    failed("set in a sequence");
    xstringsequence_insert(XOBJECT_NIL_C, 0, "nowhere");
    failed("insert into nil");
    xstringsequence_set(shop->names, 2147483647, "too far");
    failed("set at 2147483647");

    xstringsequence_removerange(shop->names, -1, 2);
    error = xextractexc_c(); /* ours now: the slot is empty, and the next call leaves it alone */
    printf("%d names, the slot is %s\n", xstringsequence_getarraysize(shop->names),
           xisexc_c() ? "full" : "empty");
    show("the exception", error);
    xdelete_c(error);
}

int main(void) {
    struct shop shop;
    char name[16];
    if (!open_shop(&shop)) {
        failed("opening");
        close_shop(&shop);
        return 1;
    }
    strcpy(name, "apple");
    add(&shop, name, 120, 0.25, "Orchard");
    strcpy(name, "lamp"); /* what was stored is a copy */
    add(&shop, name, 3, 19.90, NULL);
    add(&shop, "pencil", 40, 0.80, "Wood & Lead");
    add(&shop, "apple", 30, 0.25, "Orchard");
    print_list(&shop);
    printf("%d pieces\n", all_pieces(&shop));

    discard(&shop, 1);
    print_list(&shop);
    show("names", shop.names);
    show("nothing", NULL);
    provoke(&shop);
    close_shop(&shop);
    return 0;
}
