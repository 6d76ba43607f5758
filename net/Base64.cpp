#include "net/Base64.h"

#include <cstdlib>

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(unsigned char c)
{
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

bool isSpace(unsigned char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

int base64_encode(void const* data, unsigned int length, char** out)
{
    *out = nullptr;
    if (length > 0xBFFFFFFCu / 4 * 3 || (length > 0 && !data))
        return -1;
    const unsigned char* in = static_cast<const unsigned char*>(data);
    const unsigned int encodedLength = (length + 2) / 3 * 4;
    char* result = static_cast<char*>(std::malloc(encodedLength + 1));
    if (!result)
        return -1;
    unsigned int o = 0;
    for (unsigned int i = 0; i < length; i += 3) {
        const unsigned int remaining = length - i;
        const unsigned int group = (unsigned(in[i]) << 16)
            | (remaining > 1 ? unsigned(in[i + 1]) << 8 : 0u)
            | (remaining > 2 ? unsigned(in[i + 2]) : 0u);
        result[o++] = kAlphabet[(group >> 18) & 63];
        result[o++] = kAlphabet[(group >> 12) & 63];
        result[o++] = remaining > 1 ? kAlphabet[(group >> 6) & 63] : '=';
        result[o++] = remaining > 2 ? kAlphabet[group & 63] : '=';
    }
    result[o] = 0;
    *out = result;
    return int(o);
}

int base64_decode(char const* text, unsigned int length, char** out)
{
    *out = nullptr;
    if (length > 0 && !text)
        return -1;
    char* result = static_cast<char*>(std::malloc(length / 4 * 3 + 3 + 1));
    if (!result)
        return -1;
    unsigned int o = 0;
    unsigned int group = 0;
    int bits = 0;
    for (unsigned int i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '=' )
            break;
        if (isSpace(c))
            continue;
        const int value = sextet(c);
        if (value < 0) {
            std::free(result);
            return -1;
        }
        group = (group << 6) | unsigned(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            result[o++] = char((group >> bits) & 0xFF);
        }
    }
    result[o] = 0;
    *out = result;
    return int(o);
}
