#include "util/IniReader.h"

#include <cstdlib>
#include <fstream>

namespace {

/** atoi without its undefined overflow: what does not fit is cut to the lowest bits. */
int32_t ToInt32(const std::string& refValue) {
    return static_cast<int32_t>(std::strtol(refValue.c_str(), nullptr, 10));
}

}  // namespace

bool CIniReader::ReadConfig(const std::string& path) {
    m_configMap.clear();
    std::ifstream file(path);
    if (!file.is_open()) {
        return false;
    }
    // A read error, or memory that runs out in the middle, would otherwise look like the file's end, and half a
    // configuration like a whole one.
    file.exceptions(std::ios::badbit);
    try {
        _ReadLines(file);
    } catch (const std::ios::failure&) {
        m_configMap.clear();
        return false;
    }
    return true;
}

void CIniReader::_ReadLines(std::istream& refFile) {
    std::string line;
    std::string section;
    std::map<std::string, std::string> keyMap;
    while (std::getline(refFile, line)) {
        std::string key;
        std::string value;
        if (!AnalyseLine(line, section, key, value)) {
            continue;
        }
        // The line that opens a section is its header, so its own key is not kept. A section that comes a
        // second time is not opened again: it takes over the keys of the one before it. Files in use rely on
        // both.
        if (!m_configMap.contains(section)) {
            keyMap.clear();
            m_configMap[section];
        } else {
            keyMap[key] = value;
            m_configMap[section] = keyMap;
        }
    }
}

std::string CIniReader::ReadString(const char* lpSection, const char* lpKey, const char* lpDefault) const {
    std::string value = lpDefault != nullptr ? lpDefault : "";
    ReadCommon(lpSection, lpKey, value);
    return value;
}

int32_t CIniReader::ReadInt32(const char* lpSection, const char* lpKey, int32_t nDefault) const {
    std::string value;
    return ReadCommon(lpSection, lpKey, value) ? ToInt32(value) : nDefault;
}

uint32_t CIniReader::ReadUInt32(const char* lpSection, const char* lpKey, uint32_t nDefault) const {
    std::string value;
    if (!ReadCommon(lpSection, lpKey, value)) {
        return nDefault;
    }
    return static_cast<uint32_t>(std::strtoll(value.c_str(), nullptr, 10));
}

uint16_t CIniReader::ReadUInt16(const char* lpSection, const char* lpKey, uint16_t nDefault) const {
    std::string value;
    return ReadCommon(lpSection, lpKey, value) ? static_cast<uint16_t>(ToInt32(value)) : nDefault;
}

bool CIniReader::ReadCommon(const char* lpSection, const char* lpKey, std::string& refValue) const {
    if (lpSection == nullptr || lpKey == nullptr) {
        return false;
    }
    const auto itSection = m_configMap.find(lpSection);
    if (itSection == m_configMap.end()) {
        return false;
    }
    const auto itKey = itSection->second.find(lpKey);
    if (itKey == itSection->second.end()) {
        return false;
    }
    refValue = itKey->second;
    return true;
}

bool CIniReader::AnalyseLine(const std::string& line, std::string& section, std::string& key,
                             std::string& value) {
    const size_t nComment = line.find('#');
    if (line.empty() || nComment == 0) {
        return false;
    }

    // Brackets count wherever they stand, behind a '#' too, and the length is right for a header in the first
    // column only: an indented one takes characters from behind its bracket into the name.
    const size_t nOpen = line.find('[');
    const size_t nClose = line.find(']');
    if (nOpen != std::string::npos && nClose != std::string::npos) {
        section = line.substr(nOpen + 1, nClose - 1);
        return true;
    }

    const std::string data = line.substr(0, nComment);
    const size_t nEqual = data.find('=');
    if (nEqual == std::string::npos) {
        return false;
    }
    std::string name = data.substr(0, nEqual);
    Trim(name);
    if (name.empty()) {
        return false;
    }
    key = name;
    value = data.substr(nEqual + 1);
    Trim(value);
    return true;
}

void CIniReader::Trim(std::string& refText) {
    constexpr const char* BLANKS = " \t\r\n";
    refText.erase(0, refText.find_first_not_of(BLANKS));
    refText.erase(refText.find_last_not_of(BLANKS) + 1);
}
