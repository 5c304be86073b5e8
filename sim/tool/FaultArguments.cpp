#include "sim/tool/FaultArguments.h"

#include "sim/rack/Protocol.h"
#include "sim/tool/Arguments.h"

namespace sim {

namespace {

std::uint8_t ReadByte(const std::string& word, const char* what) {
  return static_cast<std::uint8_t>(ReadHexByte(word, what));
}

void ReadArgument(const std::string& word, FAULT& fault) {
  switch (FaultType(fault.kind).argument) {
    case FAULT_ARGUMENT::kNone:
      break;
    case FAULT_ARGUMENT::kMilliseconds:
      fault.time = ReadMilliseconds(word);
      break;
    case FAULT_ARGUMENT::kCount: {
      const int count = ReadNumber(word, "number of bytes");
      if (count < 0) {
        throw ARGUMENT_ERROR("an answer cannot be cut to fewer than 0 bytes");
      }
      fault.count = static_cast<std::size_t>(count);
      break;
    }
    case FAULT_ARGUMENT::kBytes:
      fault.bytes = ReadHexBytes(word);
      break;
    case FAULT_ARGUMENT::kLength:
      if (const LENGTH_WORD* row = FindRow(kLengthWords, word)) {
        fault.length = row->length;
      } else {
        fault.value = ReadByte(word, "length");
      }
      break;
    case FAULT_ARGUMENT::kAddress:
      fault.value = ReadByte(word, "address byte");
      break;
    case FAULT_ARGUMENT::kError: {
      const ERROR_CODE* row = FindRow(kErrorCodes, word);
      fault.value =
          row != nullptr ? row->code : ReadByte(word, "error code; 'help fault' lists them");
      break;
    }
  }
}

std::uint8_t ReadRequestCode(const std::string& word) {
  const REQUEST_CODE* row = FindRow(kRequestCodes, word);
  return row != nullptr
             ? row->code
             : ReadByte(
                   word,
                   "request code; output, poll, identify, handshake and parameter have names too");
}

std::uint64_t ReadTimes(const std::string& word) {
  const int times = ReadNumber(word, "number of times");
  if (times < 1) {
    throw ARGUMENT_ERROR("a fault happens at least once");
  }
  return static_cast<std::uint64_t>(times);
}

/// What may follow the kind and its argument, in any order.
struct SCOPE {
  const char* keyword;
  bool hasValue;
  void (*apply)(FAULT& fault, const std::string& value);
};
void TakeAddress(FAULT& fault, const std::string& value) {
  fault.address = static_cast<std::uint8_t>(ReadAddress(value));
}
void TakeCode(FAULT& fault, const std::string& value) {
  fault.code = ReadRequestCode(value);
}
void HappenOnce(FAULT& fault, const std::string& /*value*/) {
  fault.times = 1;
}
void HappenTimes(FAULT& fault, const std::string& value) {
  fault.times = ReadTimes(value);
}
void LastFor(FAULT& fault, const std::string& value) {
  fault.times.reset();
  fault.lasts = ReadSeconds(value);
}
void HappenAlways(FAULT& fault, const std::string& /*value*/) {
  fault.times.reset();
}

constexpr SCOPE kScopes[] = {
    {"on", true, TakeAddress},    {"code", true, TakeCode}, {"once", false, HappenOnce},
    {"times", true, HappenTimes}, {"for", true, LastFor},   {"always", false, HappenAlways},
};

}  // namespace

FAULT ReadFault(const std::vector<std::string>& words) {
  const FAULT_TYPE* row = FindRow(kFaultTypes, words.at(0));
  if (row == nullptr) {
    throw ARGUMENT_ERROR("there is no fault '" + words[0] + "'; 'help fault' lists them");
  }
  FAULT fault;
  fault.kind = row->kind;
  std::size_t at = 1;
  if (row->argument != FAULT_ARGUMENT::kNone) {
    if (words.size() < 2) {
      throw ARGUMENT_ERROR(std::string("fault ") + row->keyword + " needs " + row->usage);
    }
    ReadArgument(words[at++], fault);
  }
  while (at < words.size()) {
    const std::string& word = words[at++];
    const SCOPE* scope = FindRow(kScopes, word);
    if (scope == nullptr || (scope->hasValue && at == words.size())) {
      throw ARGUMENT_ERROR("'" + word +
                           "': expected on A, code CODE, once, times N, for SECONDS or always");
    }
    scope->apply(fault, scope->hasValue ? words[at++] : std::string());
  }
  return fault;
}

}  // namespace sim
