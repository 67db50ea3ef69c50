// The LOC record (RFC 1876). Any thread.
#pragma once

#include <netro/DNSCLS.h>

#include "support/ByteReader.h"

namespace netro {

/// Reads the record's data into the LOC_ properties and its zone-file text into Data. False when it
/// is no location of version 0; then nothing was set.
bool ReadLocation(ByteReader& reader, DNSCLS& record);

}  // namespace netro
