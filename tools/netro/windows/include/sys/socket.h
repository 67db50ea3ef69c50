// Where Windows has what other systems have under this name.
#pragma once

#include <arpa/inet.h>
