// boot_block.h - the boot loader's configuration block as the tests build it and find it in flash.
#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/device.h"

namespace tq_test {

inline const std::string kFlash = "/dev/mtdblock1";

inline std::string word(uint32_t value) {
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

inline uint32_t word_of(std::string_view bytes) {
    uint32_t value = 0;
    bytes.copy(reinterpret_cast<char*>(&value), sizeof(value));
    return value;
}

inline std::string padded(std::string text, size_t size) {
    text.resize(size);
    return text;
}

// Header, names and value.
inline std::string entry_with(uint8_t type, uint8_t sense, const std::string& names,
                              size_t key_size, size_t enable_key_size, const std::string& value) {
    std::string bytes;
    bytes += static_cast<char>(type);
    bytes += static_cast<char>(key_size);
    bytes += static_cast<char>(sense);
    bytes += static_cast<char>(enable_key_size);
    return bytes + names + value;
}

inline std::string entry(uint8_t type, const std::string& key, const std::string& value) {
    return entry_with(type, 1, key + '\0', key.size() + 1, 0, value);
}

inline std::string enabled_entry(uint8_t type, const std::string& key,
                                 const std::string& enable_key, uint8_t sense,
                                 const std::string& value) {
    return entry_with(type, sense, key + '\0' + enable_key + '\0', key.size() + 1,
                      enable_key.size() + 1, value);
}

inline std::string bool_entry(const std::string& key, bool value) {
    return entry(1, key, word(value));
}
inline std::string int_entry(const std::string& key, uint32_t value) {
    return entry(2, key, word(value));
}
inline std::string string_entry(const std::string& key, const std::string& value) {
    return entry(3, key, padded(value, 128));
}
inline std::string script_entry(const std::string& key, const std::string& value) {
    return entry(4, key, padded(value, 512));
}

// By long division, one bit after the other.
inline uint32_t boot_checksum(std::string_view bytes, uint32_t rest = 0) {
    for (const char byte : bytes) {
        rest ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; bit++)
            rest = (rest & 1) ? rest >> 1 ^ 0xEDB88320U : rest >> 1;
    }
    return rest;
}

inline std::string with_checksum(std::string block) {
    return block.replace(4092, 4, word(boot_checksum(std::string_view(block).substr(0, 4092))));
}

// A valid block of these entries; the rest of the area is zeros.
inline std::string boot_block(const std::string& entries) {
    return with_checksum(word(4096) + word(0x0BADFACE) + padded(entries, 4080) + word(0xDEADDEAD) +
                         word(0));
}

// The flash that the device booted with, and this block at its beginning.
inline std::string flash_with(const std::string& block) {
    static const std::string garbage = read_file(kFlash);
    std::string flash = garbage;
    return flash.replace(0, block.size(), block);
}

inline void put_block(const std::string& block) {
    write_file(kFlash, flash_with(block));
}

inline std::string block_in_flash() {
    return read_file(kFlash).substr(0, 4096);
}

}  // namespace tq_test
