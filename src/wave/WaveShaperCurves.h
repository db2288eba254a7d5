#pragma once

#include <cstdint>

// The saturation curves of the fast shaper forms. Each maps n samples from input to output (the
// same array is allowed) in groups of four: when n is not a multiple of four the last group reads
// and writes up to three samples past n, so both arrays need that much room. b scales the negative
// half (1 is symmetric), p sets the knee (1 is the plain curve); level is the per-sample linear
// level below which the TanHyperbolicLL curve passes the signal unchanged (null counts as 0).

void vectorClipArcTanFast(const float* input, float* output, int32_t n);
void vectorClipDivAbsFast(const float* input, float* output, int32_t n);
void vectorClipSineFast(const float* input, float* output, int32_t n);
void vectorClipPolynomeOrder2Fast(const float* input, float* output, int32_t n);
void vectorClipPolynomeOrder3Fast(const float* input, float* output, int32_t n);
void vectorClipTubeFast(const float* input, float* output, int32_t n);
void vectorClipRectifyFast(const float* input, float* output, int32_t n);

void vectorClipArcTanBFast(const float* input, float* output, int32_t n, float b);
void vectorClipDivAbsBFast(const float* input, float* output, int32_t n, float b);

void vectorClipArcTanPBFast(const float* input, float* output, int32_t n, float p, float b);
void vectorClipDivAbsPBFast(const float* input, float* output, int32_t n, float p, float b);
void vectorClipPolynomeOrder3PBFast(const float* input, float* output, int32_t n, float p, float b);
void vectorClipTubePBFast(const float* input, float* output, int32_t n, float p, float b);

void vectorClipTanHyperbolicLLFast(const float* input, const float* level, float* output, int32_t n);
