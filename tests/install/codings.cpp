// The smallest program that needs the component codings.
#include <netro/SystemCodings.h>

int main() { return netro::SystemCodings()->Codings().starts_with("gzip, deflate") ? 0 : 1; }
