#include "Shaping.h"

#include "audio/Gain.h"
#include "audio/ToneControl.h"

std::vector<Frame> Shaping::shapedVoice() {
    ToneControl tone;
    tone.set(txTone.bass, txTone.mid, txTone.treble, rateHz);
    std::vector<Frame> frames = voice();
    for (Frame &frame : frames) {
        applyGain(frame, gainPercent, -32767);
        tone.process(frame);
    }
    return frames;
}
