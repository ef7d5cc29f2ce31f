#include "sim/card/CardStream.h"

#include <cerrno>
#include <string>

namespace {

/// What the ALSA configuration says about a simulated card.
struct CardAddress {
    std::string folder;
    long card = -1;
    long device = 0;
};

/// True when the entry is one of ours and has the right type.
bool readEntry(const snd_config_t *entry, CardAddress &address) {
    const char *id = nullptr;
    if (snd_config_get_id(entry, &id) < 0)
        return false;
    const std::string key = id;
    if (key == "folder") {
        const char *folder = nullptr;
        const bool isText = snd_config_get_string(entry, &folder) >= 0;
        address.folder = isText ? folder : "";
        return isText;
    }
    if (key == "card")
        return snd_config_get_integer(entry, &address.card) >= 0;
    if (key == "device")
        return snd_config_get_integer(entry, &address.device) >= 0;
    return key == "type";
}

bool readAddress(const snd_config_t *config, CardAddress &address) {
    snd_config_iterator_t i = nullptr;
    snd_config_iterator_t next = nullptr;
    snd_config_for_each(i, next, config) {
        if (!readEntry(snd_config_iterator_entry(i), address))
            return false;
    }
    return !address.folder.empty() && address.card >= 0;
}

} // namespace

// ALSA finds these two by name; nothing else is seen from outside.
#pragma GCC visibility push(default)
extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(kivosim) {
    (void)root;
    CardAddress address;
    if (!readAddress(conf, address))
        return -EINVAL;
    if (address.device != 0)
        return -ENOENT;
    return sim::CardStream::open(pcmp, address.folder, address.card, name, stream, mode);
}

SND_PCM_PLUGIN_SYMBOL(kivosim);

} // extern "C"
#pragma GCC visibility pop
