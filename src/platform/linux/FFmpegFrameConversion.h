// A pixel buffer as a frame in the encoder's own pixel format: handed over as it is where it
// can be (8-bit biplanar to NV12), deinterleaved where only the planes differ, converted by
// swscale otherwise (RGB sources, 4:4:4, 8-bit from 10-bit).
#pragma once

#include "platform/linux/FFmpegWriterCore.h"

// Fills `frame` (its size and format set) from `buffer`; 0 or an AVERROR code.
int fillEncoderFrame(Encoder& e, AVFrame* frame, const CVPixelBufferRef& buffer);
