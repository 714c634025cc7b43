// A program outside the repository that uses the installed library.
#include <yinet/yinet.h>

#include <cstdio>

int main() { std::printf("%s\n", yinet_version()); }
