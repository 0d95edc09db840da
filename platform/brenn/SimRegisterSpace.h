// Sparse, byte-addressed register space of one simulated session.
//
// Registers of different widths overlap the way they do on the FPGA's bus: a 32-bit write at
// address 8 is seen by 16-bit reads at 8 and 10. Storage is kept in aligned 64-bit words that
// exist only once a byte in them was written, so a test can touch addresses anywhere in the
// 32-bit space without cost. Not thread-safe: the target's mutex guards it.
#ifndef BRENN_SIM_REGISTER_SPACE_H
#define BRENN_SIM_REGISTER_SPACE_H

#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace brenn::sim {

class RegisterSpace {
public:
    // Addresses wrap at 2^32, as the bus's address does.
    void read(uint32_t address, void* bytes, size_t size) const {
        auto* out = static_cast<uint8_t*>(bytes);
        for (size_t i = 0; i < size; ++i, ++address) {
            auto word = words_.find(address >> 3);
            out[i] = word == words_.end() ? 0 : static_cast<uint8_t>(word->second >> lane(address));
        }
    }

    void write(uint32_t address, const void* bytes, size_t size) {
        const auto* in = static_cast<const uint8_t*>(bytes);
        for (size_t i = 0; i < size; ++i, ++address) {
            uint64_t& word = words_[address >> 3];
            word = (word & ~(uint64_t{0xFF} << lane(address))) | (uint64_t{in[i]} << lane(address));
        }
    }

    // Little-endian, like the x86-64 host that reads the bytes back as integers.
    template <typename T>
    T readValue(uint32_t address) const {
        uint8_t bytes[sizeof(T)];
        read(address, bytes, sizeof(T));
        T value = 0;
        for (size_t i = 0; i < sizeof(T); ++i) value = static_cast<T>(value | (T{bytes[i]} << (8 * i)));
        return value;
    }

    template <typename T>
    void writeValue(uint32_t address, T value) {
        uint8_t bytes[sizeof(T)];
        for (size_t i = 0; i < sizeof(T); ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
        write(address, bytes, sizeof(T));
    }

private:
    static unsigned lane(uint32_t address) { return 8 * (address & 7u); }

    std::unordered_map<uint32_t, uint64_t> words_;
};

}  // namespace brenn::sim

#endif  // BRENN_SIM_REGISTER_SPACE_H
