#include <kelstdmt/xtypes.h>
int main(){}
