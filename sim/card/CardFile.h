#pragma once

#include "sim/card/CardMemory.h"

#include <memory>
#include <string>

namespace sim {

enum class Direction { Capture, Playback };

/// The file that holds a CardMemory, open and mapped.
class CardFile {
public:
    /// The site's end: a new file of zeros, in the place of an older one. Null with errno on failure.
    static std::unique_ptr<CardFile> create(const std::string &path);
    /// The device's end: a file that the site has made. Null with errno on failure.
    static std::unique_ptr<CardFile> open(const std::string &path);

    ~CardFile();
    CardFile(const CardFile &) = delete;
    CardFile &operator=(const CardFile &) = delete;

    CardMemory &memory() const { return *m_memory; }

    /// Takes that direction of the card for this open file alone, until it is closed or its process has ended in
    /// whatever way. False when another has it.
    bool claim(Direction direction);
    /// Whether another open file has that direction.
    bool isClaimed(Direction direction) const;

private:
    CardFile(int fd, CardMemory *memory) : m_fd(fd), m_memory(memory) {}
    static std::unique_ptr<CardFile> map(int fd, int flags);

    int m_fd;
    CardMemory *m_memory;
};

/// Path of a card's file.
std::string cardFilePath(const std::string &folder, long number);

} // namespace sim
