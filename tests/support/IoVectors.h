#pragma once

/// Lines of the IO client with the request that each puts on the bus. It knows nothing of the
/// daemon: unit tests and system tests hold the daemon against it.
namespace support::io {

struct VECTOR {
  const char* line;  ///< without the separator
  const char* body;  ///< "": taken, and nothing is sent; null: refused
};

constexpr auto kRefused = nullptr;
constexpr auto kNothing = "";

// clang-format off
/// In this order, on the rack of the help's examples as it is after identification.
constexpr VECTOR kVectors[] = {
    // Blocks: the whole state of a digital output, a servo and a DC motor card.
    {"a5b1dFB", "10 05 02 FF FB"},
    {"a5b0d0F", "10 05 02 0F FB"},
    {"a5b1dFF", "10 05 02 0F FF"},
    {"a5b0dFF", "10 05 02 FF FF"},
    {"a0b4d20", "10 00 06 80 80 80 80 20 80"},
    {"a0b0d00", "10 00 06 00 80 80 80 20 80"},
    {"a0b5dFF", "10 00 06 00 80 80 80 20 FF"},
    {"a1b0d11", "10 01 04 11 00 00 00"},
    {"a1b3d44", "10 01 04 11 00 00 44"},
    // A block that is not sent is remembered all the same; further characters are ignored.
    {"a1b4d99", "10 01 04 11 00 00 44"},
    {"a5b2d12", "10 05 02 FF FF"},
    {"a5bFd22", "10 05 02 FF FF"},
    {"a5b1dFBCD and more", "10 05 02 FF FB"},
    // What is no digit counts as 0; one digit is the low one.
    {"a5b0dxF", "10 05 02 0F FB"},
    {"a5b0dfb", "10 05 02 00 FB"},
    {"a5b0dF?", "10 05 02 F0 FB"},
    {"a5b0dB", "10 05 02 0B FB"},
    {"a5bxdAA", "10 05 02 AA FB"},
    {"aeb1d22", "10 00 06 00 22 80 80 20 FF"},
    // Cards that take no blocks.
    {"a3b0d55", kNothing}, {"a8b0d55", kNothing}, {"a9b0d55", kNothing},
    {"aEb0d55", kNothing}, {"aFb0d55", kNothing}, {"a2b0d55", kNothing},

    // IR streams: an odd last digit is ignored; none is a stream too; 23 bytes are the longest.
    {"a9sHS434F434B524F414348", "10 09 0A 09 43 4F 43 4B 52 4F 41 43 48"},
    {"a9sHS434", "10 09 02 01 43"},
    {"a9sHS4", "10 09 01 00"},
    {"a9sHS", "10 09 01 00"},
    {"a9sHSfF0aG1~~", "10 09 05 04 0F 00 01 00"},
    {"a9sHSA5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5",
     "10 09 18 17 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5"},
    {"a9sHSA5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A51",
     "10 09 18 17 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5"},
    {"a9sHSA5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A511", kRefused},
    {"a5sHS1234", kRefused}, {"a9s", kRefused}, {"a9sH", kRefused}, {"a9sS", kRefused}, {"a9sSH43", kRefused},
    {"a9shs43", kRefused}, {"a9sxHS43", kRefused}, {"a9s43HS", kRefused}, {"a9s HS", kRefused}, {"a9s1234", kRefused},

    // LCD controls.
    {"aElCL", "10 0E 01 00"},
    {"aElLO", "10 0E 01 01"},
    {"aElLF", "10 0E 01 02"},
    {"aElCO", "10 0E 01 03"},
    {"aElCF", "10 0E 01 04"},
    {"aElBO", "10 0E 01 05"},
    {"aElBF", "10 0E 01 06"},
    {"aElCLxyz", "10 0E 01 00"},
    {"aEl", kRefused}, {"aElC", kRefused}, {"aElcl", kRefused}, {"aElC L", kRefused}, {"aEl CL", kRefused},
    {"aElP", kRefused}, {"aElPA", kRefused}, {"a5lCL", kRefused}, {"a2lLO", kRefused}, {"aelCL", kRefused},

    // LCD texts: the tenth character is not looked at; the mark may stand anywhere, what counts is where column,
    // row and text are; 31 characters are the longest.
    {"aElPAp0301tTail of the cat", "10 0E 13 09 03 01 54 61 69 6C 20 6F 66 20 74 68 65 20 63 61 74 00"},
    {"aElPAp0301t", "10 0E 04 09 03 01 00"},
    {"aElPAp0A02?X", "10 0E 05 09 0A 02 58 00"},
    {"aElPApFF0At\xFF\x80", "10 0E 06 09 FF 0A FF 80 00"},
    {"aElCL0102tPAp", "10 0E 06 09 10 20 41 70 00"},
    {"aElPAp0000 PAp", "10 0E 07 09 00 00 50 41 70 00"},
    {"aElPAp0000t0123456789ABCDEFGHIJKLMNOPQRSTU",
     "10 0E 23 09 00 00 30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50 51 52 53 54 55 00"},
    {"aElPAp0000t0123456789ABCDEFGHIJKLMNOPQRSTUV", kRefused},
    {"aElPAp", kRefused}, {"aElPAp0", kRefused}, {"aElPAp030", kRefused}, {"aElPAp0301", kRefused},
    {"aElxPAp", kRefused}, {"aFlPAp0301tTail", kRefused},

    // Anything else, and a block that is cut before its value.
    {"x", kRefused}, {"a", kRefused}, {"a5", kRefused}, {"a5b", kRefused}, {"a5b1", kRefused}, {"a5b1d", kRefused},
    {"a5b1x", kRefused}, {"a5b1xFB", kRefused}, {"A5b1dFB", kRefused}, {"a5B1dFB", kRefused}, {"a5b1DFB", kRefused},
    {"b5b1dFB", kRefused}, {" a5b1dFB", kRefused}, {"a05b1dFB", kRefused}, {"a5x", kRefused}, {"a5xCL", kRefused},
    {"HELP", kRefused}, {"EXIT ", kRefused}, {"exit", kRefused}, {"%s%n", kRefused}, {"\r", kRefused},
    {"a5b1dFF", "10 05 02 AA FF"},  // nothing of these has changed a value
};
// clang-format on

}  // namespace support::io
