#include "frame/crypt.h"

namespace kelvor {
namespace {

template <typename Str, typename View>
Str XorWithKey(View text, View key) {
  Str out(text);
  if (text.empty() || key.empty()) return out;
  std::size_t k = 0;
  for (auto& c : out) {
    c = static_cast<typename Str::value_type>(c ^ key[k]);
    if (++k == key.size()) k = 0;
  }
  return out;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string Crypt(std::string_view text, std::string_view key) {
  return XorWithKey<std::string>(text, key);
}

std::u16string CryptUnicode(std::u16string_view text, std::u16string_view key) {
  return XorWithKey<std::u16string>(text, key);
}

std::string CryptToHex(std::string_view bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (char ch : bytes) {
    const auto b = static_cast<unsigned char>(ch);
    out.push_back(kDigits[b >> 4]);
    out.push_back(kDigits[b & 15]);
  }
  return out;
}

bool CryptFromHex(std::string_view hex, std::string* bytes) {
  if (hex.size() % 2 != 0) return false;
  std::string out;
  out.reserve(hex.size() / 2);
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const int hi = HexValue(hex[i]);
    const int lo = HexValue(hex[i + 1]);
    if (hi < 0 || lo < 0) return false;
    out.push_back(static_cast<char>(hi * 16 + lo));
  }
  *bytes = std::move(out);
  return true;
}

}  // namespace kelvor
