#pragma once

namespace yinet {

// Decodes 32 characters of the base64 alphabet at a time into 24 bytes, for which 32 are written, and moves both cursors.
// Stops in front of a block that holds anything else, and where less than a block is left; at once on processors without
// AVX2.
void decode_base64_blocks(const unsigned char*& in, const unsigned char* end, unsigned char*& out);

}  // namespace yinet
