// Functions that libGammu exports without declaring them in its installed headers.
#ifndef SMSPB_TESTS_BENCH_PEERS_H
#define SMSPB_TESTS_BENCH_PEERS_H

#include <gammu.h>

#include <cstddef>

extern "C" {
int GSM_UnpackEightBitsToSeven(size_t offset, size_t in_length, size_t out_length,
                               const unsigned char *input, unsigned char *output);
int GSM_PackSevenBitsToEight(size_t offset, const unsigned char *input, unsigned char *output,
                             size_t length);
void DecodeDefault(unsigned char *dest, const unsigned char *src, size_t len,
                   gboolean UseExtensions, unsigned char *ExtraAlphabet);
void EncodeHexBin(char *dest, const unsigned char *src, size_t len);
}

#endif
