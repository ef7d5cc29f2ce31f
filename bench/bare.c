/* The bare job of a gateway and nothing else, as the reference of what the daemon costs. Paced as the daemon is: the
 * card is looked at every 10 ms and given a frame every 20 ms.
 *
 *   bench-bare transmit CARD PORT KEY    card -> opus_encode -> crypto_secretbox_easy -> UDP to 127.0.0.1:PORT
 *   bench-bare receive CARD PORT KEY     UDP at PORT + 1 -> crypto_secretbox_open_easy -> opus_decode -> card
 *   bench-bare both CARD PORT KEY        the one and the other
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
    tickMs = 10,
    ticksPerFrame = 2,
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

typedef struct {
    snd_pcm_t *pcm;
    OpusEncoder *encoder;
    int udp;
    struct sockaddr_in address;
    unsigned char datagram[mostBytes]; /* the nonce in it counts up */
} Transmitter;

typedef struct {
    snd_pcm_t *pcm;
    OpusDecoder *decoder;
    int udp;
    short queue[mostQueued][frameSamples];
    unsigned taken;
    unsigned played;
    int playing;
} Receiver;

static void openTransmitter(Transmitter *out, const char *card, int port) {
    out->pcm = openCard(card, SND_PCM_STREAM_CAPTURE);
    check(snd_pcm_start(out->pcm) == 0, "the card does not start");
    out->encoder = opus_encoder_create(rateHz, 1, OPUS_APPLICATION_VOIP, NULL);
    check(out->encoder != NULL && opus_encoder_ctl(out->encoder, OPUS_SET_BITRATE(bitrate)) == OPUS_OK &&
              opus_encoder_ctl(out->encoder, OPUS_SET_COMPLEXITY(complexity)) == OPUS_OK,
          "no encoder");
    out->udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    out->address = localPort(port);
    check(out->udp >= 0, "no socket");
}

static void openReceiver(Receiver *in, const char *card, int port) {
    in->pcm = openCard(card, SND_PCM_STREAM_PLAYBACK);
    startAfter(in->pcm, framesBeforeStart);
    in->decoder = opus_decoder_create(rateHz, 1, NULL);
    check(in->decoder != NULL, "no decoder");
    in->udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const struct sockaddr_in address = localPort(port);
    check(in->udp >= 0 && bind(in->udp, (const struct sockaddr *)&address, sizeof address) == 0, "no socket");
}

static void sendFrame(Transmitter *out, const short *frame, const unsigned char *key) {
    unsigned char packet[mostBytes - headerBytes - crypto_secretbox_MACBYTES];
    const int size = opus_encode(out->encoder, frame, frameSamples, packet, sizeof packet);
    check(size > 0, "a frame does not encode");
    unsigned char *nonce = out->datagram + idBytes;
    sodium_increment(nonce, nonceBytes);
    crypto_secretbox_easy(out->datagram + headerBytes, packet, (unsigned)size, nonce, key);
    sendto(out->udp, out->datagram, (size_t)size + headerBytes + crypto_secretbox_MACBYTES, 0,
           (const struct sockaddr *)&out->address, sizeof out->address); /* what the network does not take is lost */
}

static void transmitFrame(Transmitter *out, const unsigned char *key) {
    const snd_pcm_sframes_t available = snd_pcm_avail_update(out->pcm);
    if (available >= 0 && available < frameSamples)
        return;
    short frame[frameSamples];
    const snd_pcm_sframes_t read = available < 0 ? available : snd_pcm_readi(out->pcm, frame, frameSamples);
    if (read == frameSamples)
        sendFrame(out, frame, key);
    else
        check(read >= 0 || (snd_pcm_recover(out->pcm, (int)read, 1) == 0 && snd_pcm_start(out->pcm) == 0),
              "the card has failed");
}

static void takeDatagram(Receiver *in, const unsigned char *key) {
    unsigned char datagram[mostBytes];
    unsigned char packet[mostBytes];
    const ssize_t size = recvfrom(in->udp, datagram, sizeof datagram, 0, NULL, NULL);
    const ssize_t packetBytes = size - headerBytes - crypto_secretbox_MACBYTES;
    check(packetBytes > 0 && crypto_secretbox_open_easy(packet, datagram + headerBytes, (size_t)size - headerBytes,
                                                        datagram + idBytes, key) == 0,
          "a datagram does not open");
    short *frame = in->queue[in->taken++ % mostQueued];
    check(opus_decode(in->decoder, packet, (opus_int32)packetBytes, frame, frameSamples, 0) == frameSamples,
          "a packet does not decode");
    if (in->taken - in->played > mostQueued)
        in->played = in->taken - mostQueued;
}

static void playFrame(Receiver *in) {
    in->playing = in->playing || in->taken - in->played >= queuedBeforeStart;
    if (!in->playing || in->played == in->taken)
        return;
    const short *frame = in->queue[in->played++ % mostQueued];
    const snd_pcm_sframes_t written = snd_pcm_writei(in->pcm, frame, frameSamples);
    if (written < 0) {
        check(snd_pcm_recover(in->pcm, (int)written, 1) == 0 && snd_pcm_writei(in->pcm, frame, frameSamples) >= 0,
              "the card has failed");
    }
}

static void work(Transmitter *out, Receiver *in, const unsigned char *key) {
    struct pollfd ready[] = {{everyMs(tickMs), POLLIN, 0}, {in ? in->udp : -1, POLLIN, 0}};
    for (unsigned ticks = 0;;) {
        check(poll(ready, 2, -1) > 0, "cannot wait");
        if (ready[1].revents != 0)
            takeDatagram(in, key);
        if (ready[0].revents == 0)
            continue;
        tick(ready[0].fd);
        if (out)
            transmitFrame(out, key);
        if (in && ++ticks % ticksPerFrame == 0)
            playFrame(in);
    }
}

int main(int argc, char **argv) {
    check(argc == 5 && strlen(argv[4]) == crypto_secretbox_KEYBYTES, "give transmit|receive|both CARD PORT KEY");
    check(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "would outlive its parent");
    check(sodium_init() >= 0, "no libsodium");
    static Transmitter out;
    static Receiver in;
    const char *job = argv[1];
    const int port = atoi(argv[3]);
    const int transmits = strcmp(job, "receive") != 0;
    const int receives = strcmp(job, "transmit") != 0;
    if (transmits)
        openTransmitter(&out, argv[2], port);
    if (receives)
        openReceiver(&in, argv[2], port + 1);
    work(transmits ? &out : NULL, receives ? &in : NULL, (const unsigned char *)argv[4]);
}
