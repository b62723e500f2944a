// Base64 encoding and the lenient decoder of sample data.
#include "document/base64.h"

namespace document {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int ValueOf(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

}  // namespace

std::string EncodeBase64(const uint8_t* bytes, size_t count) {
    std::string text;
    text.reserve((count + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= count; i += 3) {
        const uint32_t group = (uint32_t{bytes[i]} << 16) | (uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
        text += kAlphabet[(group >> 18) & 63];
        text += kAlphabet[(group >> 12) & 63];
        text += kAlphabet[(group >> 6) & 63];
        text += kAlphabet[group & 63];
    }
    const size_t rest = count - i;
    if (rest > 0) {
        uint32_t group = uint32_t{bytes[i]} << 16;
        if (rest == 2) group |= uint32_t{bytes[i + 1]} << 8;
        text += kAlphabet[(group >> 18) & 63];
        text += kAlphabet[(group >> 12) & 63];
        text += rest == 2 ? kAlphabet[(group >> 6) & 63] : '=';
        text += '=';
    }
    return text;
}

std::vector<uint8_t> DecodeBase64(std::string_view text) {
    std::vector<uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    uint32_t bits = 0;
    int numBits = 0;
    for (char c : text) {
        if (c == '=') break;
        const int value = ValueOf(c);
        if (value < 0) continue;
        bits = (bits << 6) | static_cast<uint32_t>(value);
        numBits += 6;
        if (numBits >= 8) {
            numBits -= 8;
            bytes.push_back(static_cast<uint8_t>(bits >> numBits));
            bits &= (1u << numBits) - 1;
        }
    }
    return bytes;
}

}  // namespace document
