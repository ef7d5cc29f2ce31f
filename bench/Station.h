#pragma once

#include "MemoryCard.h"
#include "audio/AudioEngine.h"

#include <QByteArray>

#include <memory>
#include <vector>

/// What both the engine and its references work with: the room's key, the codec's settings, an engine on the memory
/// card with every stage on.
namespace Station {

constexpr int bitrate = 32000;
constexpr int complexity = 5;
constexpr int frameMs = 20;
constexpr quint32 talker = 42;

/// 32 bytes.
QByteArray key();

/// Nothing when it could not be set up.
std::unique_ptr<AudioEngine> engine(unsigned playbackRateHz);

/// The voice as packets of the network: encoded and sealed.
std::vector<QByteArray> sealedVoice();

} // namespace Station
