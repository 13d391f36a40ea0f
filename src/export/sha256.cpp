#include "export/sha256.h"

#include <cstring>

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
#define PARCELWISE_SHA_NI 1
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace {

alignas(16) const std::uint32_t kRound[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

const std::uint32_t kInitial[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                   0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

#ifdef PARCELWISE_SHA_NI

bool processorHasSha()
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d))
        return false;
    const bool ssse3 = c & (1u << 9), sse41 = c & (1u << 19);
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d))
        return false;
    return ssse3 && sse41 && (b & (1u << 29));
}

// The compression function over whole 64-byte blocks, four rounds per step; W holds the message
// schedule four words to a register, each step preparing the registers later steps need.
__attribute__((target("sha,sse4.1,ssse3"))) void compress(std::uint32_t *state, const unsigned char *data, qint64 blocks)
{
    const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);
    __m128i tmp = _mm_loadu_si128(reinterpret_cast<const __m128i *>(&state[0]));
    __m128i state1 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(&state[4]));
    tmp = _mm_shuffle_epi32(tmp, 0xB1);             // CDAB
    state1 = _mm_shuffle_epi32(state1, 0x1B);       // EFGH
    __m128i state0 = _mm_alignr_epi8(tmp, state1, 8); // ABEF
    state1 = _mm_blend_epi16(state1, tmp, 0xF0);    // CDGH

    for (; blocks > 0; --blocks, data += 64) {
        const __m128i abefSave = state0;
        const __m128i cdghSave = state1;
        __m128i w[4];
        for (int i = 0; i < 4; ++i)
            w[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(data + 16 * i)), byteSwap);
#pragma GCC unroll 16
        for (int g = 0; g < 16; ++g) {
            __m128i &cur = w[g & 3];
            __m128i msg = _mm_add_epi32(cur, _mm_load_si128(reinterpret_cast<const __m128i *>(&kRound[4 * g])));
            state1 = _mm_sha256rnds2_epu32(state1, state0, msg);
            if (g >= 3 && g <= 14) {
                __m128i &next = w[(g + 1) & 3];
                next = _mm_add_epi32(next, _mm_alignr_epi8(cur, w[(g + 3) & 3], 4));
                next = _mm_sha256msg2_epu32(next, cur);
            }
            msg = _mm_shuffle_epi32(msg, 0x0E);
            state0 = _mm_sha256rnds2_epu32(state0, state1, msg);
            if (g >= 1 && g <= 12) {
                __m128i &prev = w[(g + 3) & 3];
                prev = _mm_sha256msg1_epu32(prev, cur);
            }
        }
        state0 = _mm_add_epi32(state0, abefSave);
        state1 = _mm_add_epi32(state1, cdghSave);
    }

    tmp = _mm_shuffle_epi32(state0, 0x1B);          // FEBA
    state1 = _mm_shuffle_epi32(state1, 0xB1);       // DCHG
    state0 = _mm_blend_epi16(tmp, state1, 0xF0);    // DCBA
    state1 = _mm_alignr_epi8(state1, tmp, 8);       // ABEF
    _mm_storeu_si128(reinterpret_cast<__m128i *>(&state[0]), state0);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(&state[4]), state1);
}

#else

bool processorHasSha() { return false; }
void compress(std::uint32_t *, const unsigned char *, qint64) {}

#endif

} // namespace

bool Sha256::accelerated()
{
    static const bool has = processorHasSha();
    return has;
}

Sha256::Sha256()
    : m_fast(accelerated())
{
    std::memcpy(m_state.data(), kInitial, sizeof kInitial);
}

void Sha256::addData(const char *data, qint64 length)
{
    if (!m_fast) {
        m_portable.addData(QByteArrayView(data, length));
        return;
    }
    const auto *bytes = reinterpret_cast<const unsigned char *>(data);
    m_total += quint64(length);
    if (m_blockUsed > 0) {
        const qint64 take = qMin<qint64>(64 - m_blockUsed, length);
        std::memcpy(m_block.data() + m_blockUsed, bytes, size_t(take));
        m_blockUsed += take;
        bytes += take;
        length -= take;
        if (m_blockUsed < 64)
            return;
        compress(m_state.data(), m_block.data(), 1);
        m_blockUsed = 0;
    }
    if (length >= 64) {
        compress(m_state.data(), bytes, length / 64);
        bytes += length / 64 * 64;
        length %= 64;
    }
    std::memcpy(m_block.data(), bytes, size_t(length));
    m_blockUsed = length;
}

QString Sha256::hexResult()
{
    if (!m_fast)
        return QString::fromLatin1(m_portable.result().toHex());
    const quint64 bits = m_total * 8;
    unsigned char tail[72] = {0x80};
    const qint64 pad = (m_blockUsed < 56 ? 56 : 120) - m_blockUsed;
    for (int i = 0; i < 8; ++i)
        tail[pad + i] = (unsigned char)(bits >> (56 - 8 * i));
    addData(reinterpret_cast<const char *>(tail), pad + 8);
    QByteArray digest(32, Qt::Uninitialized);
    for (int i = 0; i < 8; ++i) {
        for (int j = 0; j < 4; ++j)
            digest[4 * i + j] = char(m_state[size_t(i)] >> (24 - 8 * j));
    }
    return QString::fromLatin1(digest.toHex());
}
