#include "base/uuid.h"

#include <array>
#include <random>

namespace mirlo {

std::string makeUuidString() {
  std::random_device device;
  std::array<unsigned char, 16> bytes{};
  for (auto& b : bytes) b = static_cast<unsigned char>(device() & 0xFF);
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out.push_back(kHex[bytes[i] >> 4]);
    out.push_back(kHex[bytes[i] & 0x0F]);
  }
  return out;
}

}  // namespace mirlo
