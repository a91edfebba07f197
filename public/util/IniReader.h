/**
 * Configuration files: sections of keys and values, read whole and then asked by name.
 *
 *     # a comment; also behind a value
 *     [section]                      must begin in the first column
 *     key = value
 */
#ifndef KOVA_PUBLIC_UTIL_INI_READER_H
#define KOVA_PUBLIC_UTIL_INI_READER_H

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>

/** Names are case-sensitive. A line that makes no sense is skipped without a word. */
class CIniReader {
 public:
    /**
     * Replaces what was read before by this file's content.
     *
     * False, and nothing kept, if it cannot be opened or read to its end, as a directory cannot.
     */
    bool ReadConfig(const std::string& path);

    /** The value, an empty one included; the default only where the section or the key is missing. */
    [[nodiscard]] std::string ReadString(const char* lpSection, const char* lpKey, const char* lpDefault) const;

    /** The number that the value begins with, 0 where there is none; the default as above. */
    [[nodiscard]] int32_t ReadInt32(const char* lpSection, const char* lpKey, int32_t nDefault) const;

    /** The same, cut to its lowest 32 bits. */
    [[nodiscard]] uint32_t ReadUInt32(const char* lpSection, const char* lpKey, uint32_t nDefault) const;

    /** The same, cut to its lowest 16 bits. */
    [[nodiscard]] uint16_t ReadUInt16(const char* lpSection, const char* lpKey, uint16_t nDefault) const;

    /** Looks a value up; false, and the value untouched, where the section, the key or a name is missing. */
    bool ReadCommon(const char* lpSection, const char* lpKey, std::string& refValue) const;

    /**
     * Takes one line apart: false if it says nothing.
     *
     * A section header sets the section alone, any other line the key and the value alone.
     */
    static bool AnalyseLine(const std::string& line, std::string& section, std::string& key,
                            std::string& value);

    /** Strips blanks, tabs and line ends off both ends. */
    static void Trim(std::string& refText);

 private:
    void _ReadLines(std::istream& refFile);

    std::map<std::string, std::map<std::string, std::string>> m_configMap;
};

#endif  // KOVA_PUBLIC_UTIL_INI_READER_H
