/* The bare job of a gateway and nothing else, as the reference of what the daemon costs: one direction per process,
 * paced by the blocking card or socket.
 *
 *   bench-bare transmit CARD PORT KEY    card -> opus_encode -> crypto_secretbox_easy -> UDP to 127.0.0.1:PORT
 *   bench-bare receive CARD PORT KEY     UDP at PORT -> crypto_secretbox_open_easy -> opus_decode -> card
 *
 * KEY is 32 characters. Runs until it is killed. */

#include <alsa/asoundlib.h>
#include <arpa/inet.h>
#include <opus.h>
#include <poll.h>
#include <signal.h>
#include <sodium.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

enum {
    rateHz = 48000,
    frameSamples = 960,
    bufferFrames = 25 * frameSamples,
    framesBeforeStart = 5 * frameSamples,
    queuedBeforeStart = 5,
    mostQueued = 10,
    captureMs = 10,
    playbackMs = 20,
    bitrate = 32000,
    complexity = 5,
    idBytes = 4,
    nonceBytes = crypto_secretbox_NONCEBYTES,
    headerBytes = idBytes + nonceBytes,
    mostBytes = 1500
};

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "bench-bare: %s\n", what);
        exit(1);
    }
}

static snd_pcm_t *openCard(const char *name, snd_pcm_stream_t stream) {
    snd_pcm_t *pcm = NULL;
    check(snd_pcm_open(&pcm, name, stream, 0) == 0, "cannot open the card");
    snd_pcm_hw_params_t *hardware = NULL;
    snd_pcm_hw_params_alloca(&hardware);
    check(snd_pcm_hw_params_any(pcm, hardware) >= 0 &&
              snd_pcm_hw_params_set_access(pcm, hardware, SND_PCM_ACCESS_RW_INTERLEAVED) == 0 &&
              snd_pcm_hw_params_set_format(pcm, hardware, SND_PCM_FORMAT_S16_LE) == 0 &&
              snd_pcm_hw_params_set_channels(pcm, hardware, 1) == 0 &&
              snd_pcm_hw_params_set_rate(pcm, hardware, rateHz, 0) == 0 &&
              snd_pcm_hw_params_set_period_size(pcm, hardware, frameSamples, 0) == 0 &&
              snd_pcm_hw_params_set_buffer_size(pcm, hardware, bufferFrames) == 0 &&
              snd_pcm_hw_params(pcm, hardware) == 0,
          "the card does not take the format");
    return pcm;
}

static void startAfter(snd_pcm_t *pcm, snd_pcm_uframes_t frames) {
    snd_pcm_sw_params_t *software = NULL;
    snd_pcm_sw_params_alloca(&software);
    check(snd_pcm_sw_params_current(pcm, software) == 0 &&
              snd_pcm_sw_params_set_start_threshold(pcm, software, frames) == 0 &&
              snd_pcm_sw_params(pcm, software) == 0,
          "the card does not take the threshold");
}

static struct sockaddr_in localPort(int port) {
    struct sockaddr_in address = {0};
    address.sin_family = AF_INET;
    address.sin_port = htons((unsigned short)port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

static int everyMs(int ms) {
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const struct itimerspec times = {{0, ms * 1000000L}, {0, ms * 1000000L}};
    check(timer >= 0 && timerfd_settime(timer, 0, &times, NULL) == 0, "no timer");
    return timer;
}

static void tick(int timer) {
    uint64_t expirations = 0;
    check(read(timer, &expirations, sizeof expirations) == sizeof expirations, "the timer has failed");
}

/* The card is running as soon as it has been read once. */
static void waitForFrame(snd_pcm_t *pcm, int timer) {
    while (snd_pcm_state(pcm) == SND_PCM_STATE_RUNNING && snd_pcm_avail_update(pcm) < frameSamples)
        tick(timer);
}

static void transmit(int byTimers, const char *card, int port, const unsigned char *key) {
    const int timer = everyMs(captureMs);
    snd_pcm_t *pcm = openCard(card, SND_PCM_STREAM_CAPTURE);
    OpusEncoder *encoder = opus_encoder_create(rateHz, 1, OPUS_APPLICATION_VOIP, NULL);
    check(encoder != NULL && opus_encoder_ctl(encoder, OPUS_SET_BITRATE(bitrate)) == OPUS_OK &&
              opus_encoder_ctl(encoder, OPUS_SET_COMPLEXITY(complexity)) == OPUS_OK,
          "no encoder");
    const int udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const struct sockaddr_in address = localPort(port);
    check(udp >= 0, "no socket");
    unsigned char datagram[mostBytes] = {0};
    unsigned char *nonce = datagram + idBytes;
    for (;;) {
        short frame[frameSamples];
        if (byTimers)
            waitForFrame(pcm, timer);
        const snd_pcm_sframes_t read = snd_pcm_readi(pcm, frame, frameSamples);
        if (read != frameSamples) {
            check(read >= 0 || snd_pcm_recover(pcm, (int)read, 1) == 0, "the card has failed");
            continue;
        }
        unsigned char packet[mostBytes - headerBytes - crypto_secretbox_MACBYTES];
        const int size = opus_encode(encoder, frame, frameSamples, packet, sizeof packet);
        check(size > 0, "a frame does not encode");
        sodium_increment(nonce, nonceBytes);
        crypto_secretbox_easy(datagram + headerBytes, packet, (unsigned)size, nonce, key);
        sendto(udp, datagram, (size_t)size + headerBytes + crypto_secretbox_MACBYTES, 0,
               (const struct sockaddr *)&address, sizeof address); /* what the network does not take is lost */
    }
}

static void play(snd_pcm_t *pcm, const short *frame) {
    const snd_pcm_sframes_t written = snd_pcm_writei(pcm, frame, frameSamples);
    if (written < 0) {
        check(snd_pcm_recover(pcm, (int)written, 1) == 0 && snd_pcm_writei(pcm, frame, frameSamples) >= 0,
              "the card has failed");
    }
}

static void takeDatagram(int udp, OpusDecoder *decoder, const unsigned char *key, short *frame) {
    unsigned char datagram[mostBytes];
    unsigned char packet[mostBytes];
    const ssize_t size = recvfrom(udp, datagram, sizeof datagram, 0, NULL, NULL);
    const ssize_t packetBytes = size - headerBytes - crypto_secretbox_MACBYTES;
    check(packetBytes > 0 && crypto_secretbox_open_easy(packet, datagram + headerBytes, (size_t)size - headerBytes,
                                                        datagram + idBytes, key) == 0,
          "a datagram does not open");
    check(opus_decode(decoder, packet, (opus_int32)packetBytes, frame, frameSamples, 0) == frameSamples,
          "a packet does not decode");
}

static void playByTimer(snd_pcm_t *pcm, int udp, OpusDecoder *decoder, const unsigned char *key) {
    static short queue[mostQueued][frameSamples];
    unsigned taken = 0;
    unsigned played = 0;
    int playing = 0;
    struct pollfd ready[] = {{udp, POLLIN, 0}, {everyMs(playbackMs), POLLIN, 0}};
    for (;;) {
        check(poll(ready, 2, -1) > 0, "cannot wait");
        if (ready[0].revents != 0) {
            takeDatagram(udp, decoder, key, queue[taken++ % mostQueued]);
            if (taken - played > mostQueued)
                played = taken - mostQueued;
        }
        playing = playing || taken - played >= queuedBeforeStart;
        if (ready[1].revents != 0) {
            tick(ready[1].fd);
            if (playing && played != taken)
                play(pcm, queue[played++ % mostQueued]);
        }
    }
}

static void receive(int byTimers, const char *card, int port, const unsigned char *key) {
    snd_pcm_t *pcm = openCard(card, SND_PCM_STREAM_PLAYBACK);
    startAfter(pcm, framesBeforeStart);
    OpusDecoder *decoder = opus_decoder_create(rateHz, 1, NULL);
    check(decoder != NULL, "no decoder");
    const int udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const struct sockaddr_in address = localPort(port);
    check(udp >= 0 && bind(udp, (const struct sockaddr *)&address, sizeof address) == 0, "no socket");
    if (byTimers)
        playByTimer(pcm, udp, decoder, key);
    for (;;) {
        short frame[frameSamples];
        takeDatagram(udp, decoder, key, frame);
        play(pcm, frame);
    }
}

int main(int argc, char **argv) {
    check(argc == 6 && strlen(argv[5]) == crypto_secretbox_KEYBYTES,
          "give transmit|receive timers|blocking CARD PORT KEY");
    check(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "would outlive its parent");
    check(sodium_init() >= 0, "no libsodium");
    const int byTimers = strcmp(argv[2], "timers") == 0;
    const unsigned char *key = (const unsigned char *)argv[5];
    if (strcmp(argv[1], "transmit") == 0)
        transmit(byTimers, argv[3], atoi(argv[4]), key);
    receive(byTimers, argv[3], atoi(argv[4]), key);
}
