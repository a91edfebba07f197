/**
 * Text inside records: a plain array of bytes that always holds a NUL-terminated string.
 */
#ifndef KOVA_PUBLIC_UTIL_UST_CHAR_ARRAY_H
#define KOVA_PUBLIC_UTIL_UST_CHAR_ARRAY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

/**
 * A string of at most N - 1 characters in N bytes.
 *
 * It has no length field, allocates nothing, throws nothing and fails nowhere: what does not fit is cut without
 * a word. Records that hold it can be copied byte for byte. One object belongs to one thread at a time.
 */
template <size_t N>
class CUstCharArray {
    static_assert(N > 0, "there is always room for the NUL");

 public:
    /** The empty string. */
    CUstCharArray() { Clear(); }

    /** The literal, cut to fit. Not explicit: records are initialised with literals. */
    template <size_t L>
    CUstCharArray(const char (&refLiteral)[L]) {
        _MyCopy(refLiteral);
    }

    /** Makes it the empty string; the bytes behind its NUL stay as they were. */
    void Clear() { m_value[0] = '\0'; }

    /** Characters before the NUL. Counted anew by every call; N where a foreign buffer has no NUL. */
    [[nodiscard]] size_t Length() const { return strnlen(m_value, N); }

    /** Bytes of the array, the NUL's included. */
    [[nodiscard]] size_t Size() const { return N; }

    [[nodiscard]] const char* data() const { return m_value; }

    /** Copies as many bytes as the literal has characters, cut to fit; the literal is not scanned for a NUL. */
    template <size_t L>
    CUstCharArray& _MyCopy(const char (&refLiteral)[L]) {
        if (refLiteral[0] == '\0') {
            Clear();
            return *this;
        }
        return _Store(refLiteral, std::min(L, N) - 1);
    }

    /** Copies the other array's string, cut to fit. */
    template <size_t M>
    CUstCharArray& _MyCopy(const CUstCharArray<M>& refSource) {
        return _Store(refSource.data(), std::min(refSource.Length(), N - 1));
    }

    template <size_t L>
    CUstCharArray& CopyFrom(const char (&refLiteral)[L]) {
        return _MyCopy(refLiteral);
    }

    template <size_t M>
    CUstCharArray& CopyFrom(const CUstCharArray<M>& refSource) {
        return _MyCopy(refSource);
    }

    /** Copies at most nLen characters from position nPos on, also out of itself; empty if there are none. */
    template <size_t M>
    CUstCharArray& CopyFrom(const CUstCharArray<M>& refSource, size_t nPos, size_t nLen) {
        const size_t nSourceLength = refSource.Length();
        if (nSourceLength <= nPos) {
            Clear();
            return *this;
        }
        return _Store(refSource.data() + nPos, std::min({nLen, N - 1, nSourceLength - nPos}));
    }

    /**
     * Copies a C string of any length, cut to fit, and fills the rest of the array with NULs.
     *
     * Unsafe is the source alone, which must have a NUL within N bytes or be at least N bytes long. Null is
     * ignored.
     */
    CUstCharArray& UnSafeCopyFrom(const char* lpSource) {
        if (lpSource == nullptr) {
            return *this;
        }
        const size_t nLength = strnlen(lpSource, N - 1);
        std::memmove(m_value, lpSource, nLength);
        std::memset(m_value + nLength, 0, N - nLength);
        return *this;
    }

    /** Adds one character if there is room. */
    CUstCharArray& Append(char c) {
        const size_t nLength = Length();
        if (nLength < N - 1) {
            m_value[nLength] = c;
            m_value[nLength + 1] = '\0';
        }
        return *this;
    }

    /** Adds the literal up to its NUL, cut to fit. */
    template <size_t L>
    CUstCharArray& Append(const char (&refLiteral)[L]) {
        const size_t nLength = Length();
        const size_t nRoom = nLength < N - 1 ? N - 1 - nLength : 0;
        const size_t nAdded = std::min(strnlen(refLiteral, L), nRoom);
        if (nAdded > 0) {
            std::memmove(m_value + nLength, refLiteral, nAdded);
            m_value[nLength + nAdded] = '\0';
        }
        return *this;
    }

    /** Adds the number in decimal. Without room for all of it, its lowest digits fill the array. */
    CUstCharArray& Append(int v) {
        const auto nBits = static_cast<unsigned int>(v);
        if (v < 0) {
            Append('-');
        }
        ParseInt(v < 0 ? 0U - nBits : nBits, Length());
        return *this;
    }

    /** Writes the decimal digits of v so that they begin at nPos; see Append(int) for a lack of room. */
    void ParseInt(unsigned long v, size_t nPos) {
        const ptrdiff_t nLeft = _ParseIntRight(v, nPos);
        if (nPos >= N - 1 || nLeft < static_cast<ptrdiff_t>(nPos)) {
            return;
        }
        const auto nFirst = static_cast<size_t>(nLeft) + 1;
        std::memmove(m_value + nPos, m_value + nFirst, N - nFirst);
    }

    /** The number that the text begins with, as atoi reads it; 0 where there is none. */
    [[nodiscard]] int32_t ToInt32() const {
        char szNumber[N];
        std::memcpy(szNumber, m_value, N);
        szNumber[N - 1] = '\0';
        return static_cast<int32_t>(std::strtol(szNumber, nullptr, 10));
    }

    /** Compares with the literal; 0 is equal, see below. */
    template <size_t L>
    [[nodiscard]] int32_t Comp(const char (&refLiteral)[L]) const {
        return Comp(BuffCast<L>(refLiteral));
    }

    /** 0 equal, or equal over all M positions of the other; 1 the other is greater; -1 the other is less. */
    template <size_t M>
    [[nodiscard]] int32_t Comp(const CUstCharArray<M>& refOther) const {
        const char* lpOther = refOther.data();
        for (size_t i = 0; i < M; ++i) {
            const auto cMine = static_cast<signed char>(i < N ? m_value[i] : '\0');
            const auto cOther = static_cast<signed char>(lpOther[i]);
            if (cMine != cOther) {
                return cOther > cMine ? 1 : -1;
            }
            if (cMine == '\0') {
                return 0;
            }
        }
        return 0;
    }

    /** Lays an array over a foreign buffer, without copying; that a NUL stands in it is its owner's business.
     */
    template <size_t M>
    [[nodiscard]] static CUstCharArray<M>& BuffCast(char (&refBuffer)[M]) {
        return reinterpret_cast<CUstCharArray<M>&>(refBuffer);
    }

    template <size_t M>
    [[nodiscard]] static const CUstCharArray<M>& BuffCast(const char (&refBuffer)[M]) {
        return reinterpret_cast<const CUstCharArray<M>&>(refBuffer);
    }

    /**
     * Adds each field between separators to `out`, cut to M - 1 characters.
     *
     * Two adjacent separators enclose an empty field; behind a trailing one there is none. Growing the vector
     * is the only thing here that allocates.
     */
    template <size_t M>
    void SplitByChar(std::vector<CUstCharArray<M>>& out, char sep) const {
        const CUstCharArray local(*this);
        const size_t nLength = local.Length();
        size_t nStart = 0;
        for (size_t i = 0; i < nLength; ++i) {
            if (local.m_value[i] == sep) {
                out.emplace_back().CopyFrom(local, nStart, i - nStart);
                nStart = i + 1;
            }
        }
        if (nLength > nStart) {
            out.emplace_back().CopyFrom(local, nStart, M);
        }
    }

 private:
    /** nCount is at most N - 1; the source may lie in this array. */
    CUstCharArray& _Store(const char* lpSource, size_t nCount) {
        // Through a plain pointer: the compiler merges what several capacities have in common.
        char* lpTarget = m_value;
        std::memmove(lpTarget, lpSource, nCount);
        lpTarget[nCount] = '\0';
        return *this;
    }

    /** Writes digits leftwards from the array's end, never left of nPos; the index left of the first one. */
    ptrdiff_t _ParseIntRight(unsigned long v, size_t nPos) {
        m_value[N - 1] = '\0';
        auto nIndex = static_cast<ptrdiff_t>(N) - 2;
        const auto nLimit = static_cast<ptrdiff_t>(std::min(nPos, N));
        do {
            if (nIndex < nLimit) {
                break;
            }
            m_value[nIndex--] = static_cast<char>('0' + v % 10);
            v /= 10;
        } while (v > 0);
        return nIndex;
    }

    char m_value[N] = {};
};

using CAddressType = CUstCharArray<256>;         /**< "ip:port" of a multicast group */
using CMACType = CUstCharArray<256>;             /**< MAC address */
using CIPType = CUstCharArray<256>;              /**< IP address */
using CConfigFileNameType = CUstCharArray<256>;  /**< path of the configuration file */
using CInstrumentListType = CUstCharArray<4096>; /**< a channel's instruments, separated by commas */
using CFPGADMANameType = CUstCharArray<64>;      /**< name of a DMA stream */

#endif  // KOVA_PUBLIC_UTIL_UST_CHAR_ARRAY_H
