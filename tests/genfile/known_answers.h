// Bytes computed outside the library, with the openssl command-line tool:
//   material = bytes (i * 7 + 3) mod 256 for i = 0..255
//   openssl dgst -md5 material                  -> kMaterialDigestHex
//   openssl enc -rc4 -K <digest> -in <plain>    -> the cipher texts
#ifndef AOSTORE_TESTS_GENFILE_KNOWN_ANSWERS_H
#define AOSTORE_TESTS_GENFILE_KNOWN_ANSWERS_H

#include <string>
#include <vector>

namespace ao::test {

inline std::vector<unsigned char> KnownMaterial() {
  std::vector<unsigned char> material(256);
  for (size_t i = 0; i < material.size(); ++i) material[i] = static_cast<unsigned char>(i * 7 + 3);
  return material;
}

inline constexpr char kMaterialDigestHex[] = "d436d767fed83db89eacc70ed6cbd839";

inline constexpr char kFirstPlain[] = "Stream records are enciphered from the start.";
inline constexpr char kFirstCipherHex[] =
    "ca26546ba4fcfbfeb6d1244113c2e9e0be84829a752f15f6e221a3a8f45c546231a2eeec53942b87c620de82ec";
inline constexpr char kSecondPlain[] = "A second record, also from the start.";
inline constexpr char kSecondCipherHex[] = "d872556ba6feb5e8f3c02e5018c3adadec80ce8c746c1af4e529f1b9f81912632aaebcec15";

inline std::vector<unsigned char> FromHex(const std::string& hex) {
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace ao::test

#endif  // AOSTORE_TESTS_GENFILE_KNOWN_ANSWERS_H
