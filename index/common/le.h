// Little-endian fields of index file bytes.
#pragma once

#include <cstdint>

namespace rv::ix {

inline uint16_t Rd16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t Rd32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline void Wr16(uint8_t* p, uint16_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
inline void Wr32(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
  p[2] = uint8_t(v >> 16);
  p[3] = uint8_t(v >> 24);
}

}  // namespace rv::ix
