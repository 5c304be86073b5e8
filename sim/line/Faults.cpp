#include "sim/line/Faults.h"

#include "sim/rack/Card.h"
#include "sim/rack/Protocol.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sim {

namespace {

/// Long enough to be a read of its own at the other end, short enough to be before the next request
/// of a daemon in no hurry.
constexpr std::chrono::milliseconds kGarbageDelay{2};

/// Position of the address in an answer frame: length, code, address.
constexpr std::size_t kAddressAt = 2;

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string ArgumentText(const FAULT& fault) {
  switch (FaultType(fault.kind).argument) {
    case FAULT_ARGUMENT::kNone:
      break;
    case FAULT_ARGUMENT::kMilliseconds:
      return " " + Number(static_cast<double>(fault.time.count()) / 1000.0);
    case FAULT_ARGUMENT::kCount:
      return " " + std::to_string(fault.count);
    case FAULT_ARGUMENT::kBytes:
      return " " + ToHex(fault.bytes);
    case FAULT_ARGUMENT::kLength:
      for (const LENGTH_WORD& row : kLengthWords) {
        if (row.length == fault.length) {
          return std::string(" ") + row.keyword;
        }
      }
      return " " + ToHex(fault.value);
    case FAULT_ARGUMENT::kAddress:
      return " " + ToHex(fault.value);
    case FAULT_ARGUMENT::kError:
      for (const ERROR_CODE& row : kErrorCodes) {
        if (row.code == fault.value) {
          return std::string(" ") + row.keyword;
        }
      }
      return " " + ToHex(fault.value);
  }
  return {};
}

bool Matches(const FAULT& fault, const Bytes& request) {
  if (request.size() < 2) {
    return !fault.address && !fault.code;
  }
  const std::uint8_t code = request[1];
  if (fault.code && *fault.code != code) {
    return false;
  }
  if (!fault.address) {
    return true;
  }
  const bool hasAddress =
      code == request::kOutput || code == request::kPoll || code == request::kParameter;
  return hasAddress && request.size() > kAddressAt && request[kAddressAt] == *fault.address;
}

bool NamesAddress(const Bytes& answer) {
  if (answer.size() <= kAddressAt) {
    return false;
  }
  const std::uint8_t code = answer[1];
  return code != reply::kIdentified && code != reply::kVersion;
}

void Cut(REPLY& reply, std::size_t count) {
  for (CHUNK& chunk : reply) {
    chunk.bytes.resize(std::min(count, chunk.bytes.size()));
    count -= chunk.bytes.size();
  }
  std::erase_if(reply, [](const CHUNK& chunk) { return chunk.bytes.empty(); });
}

void Split(REPLY& reply, std::chrono::microseconds gap) {
  REPLY split;
  for (const CHUNK& chunk : reply) {
    for (std::size_t i = 0; i < chunk.bytes.size(); ++i) {
      split.push_back({i == 0 ? chunk.delay : gap, {chunk.bytes[i]}});
    }
  }
  reply = std::move(split);
}

std::uint8_t WrongLength(const FAULT& fault, std::uint8_t right) {
  switch (fault.length) {
    case LENGTH_FAULT::kShort:
      return static_cast<std::uint8_t>(right - 1);
    case LENGTH_FAULT::kLong:
      return static_cast<std::uint8_t>(right + 1);
    case LENGTH_FAULT::kOver:
      return kOverLength;
    case LENGTH_FAULT::kZero:
      return 0;
    case LENGTH_FAULT::kValue:
      break;
  }
  return fault.value;
}

}  // namespace

const FAULT_TYPE& FaultType(FAULT_KIND kind) {
  // Each kind has its row.
  // NOLINTNEXTLINE(clang-analyzer-security.ArrayBound)
  return *std::find_if(std::begin(kFaultTypes), std::end(kFaultTypes),
                       [kind](const FAULT_TYPE& row) { return row.kind == kind; });
}

std::string DescribeEffect(const FAULT& fault) {
  return FaultType(fault.kind).keyword + ArgumentText(fault);
}

std::string Describe(const FAULT& fault) {
  std::string text = DescribeEffect(fault);
  if (fault.address) {
    text += " on " + AddressText(*fault.address);
  }
  if (fault.code) {
    text += " code " + ToHex(*fault.code);
  }
  if (fault.times == 1U) {
    text += " once";
  } else if (fault.times) {
    text += " times " + std::to_string(*fault.times);
  } else if (!fault.lasts) {
    text += " always";
  }
  if (fault.lasts) {
    text += " for " + Number(std::round(static_cast<double>(fault.lasts->count()) / 100) / 10);
  }
  return text;
}

bool ApplyFault(const FAULT& fault, const Bytes& request, REPLY& reply) {
  if (fault.kind == FAULT_KIND::kError) {
    Bytes body{fault.value};
    if (request.size() > kAddressAt) {
      body.push_back(request[kAddressAt]);
    }
    reply = {{std::chrono::microseconds(0), Frame(body)}};
    return true;
  }
  if (reply.empty() || reply.front().bytes.empty()) {
    return false;
  }
  switch (fault.kind) {
    case FAULT_KIND::kNoAnswer:
      reply.clear();
      break;
    case FAULT_KIND::kLate:
      reply.front().delay += fault.time;
      break;
    case FAULT_KIND::kCut:
      Cut(reply, fault.count);
      break;
    case FAULT_KIND::kSplit:
      Split(reply, fault.time);
      break;
    case FAULT_KIND::kTrailing: {
      Bytes& last = reply.back().bytes;
      last.insert(last.end(), fault.bytes.begin(), fault.bytes.end());
      break;
    }
    case FAULT_KIND::kLeading: {
      Bytes& first = reply.front().bytes;
      first.insert(first.begin(), fault.bytes.begin(), fault.bytes.end());
      break;
    }
    case FAULT_KIND::kGarbage:
      reply.push_back({kGarbageDelay, fault.bytes});
      break;
    case FAULT_KIND::kLength:
      reply.front().bytes[0] = WrongLength(fault, reply.front().bytes[0]);
      break;
    case FAULT_KIND::kAddress:
      if (!NamesAddress(reply.front().bytes)) {
        return false;
      }
      reply.front().bytes[kAddressAt] = fault.value;
      break;
    case FAULT_KIND::kDuplicate: {
      const REPLY once = reply;
      reply.insert(reply.end(), once.begin(), once.end());
      break;
    }
    case FAULT_KIND::kError:
      break;
  }
  return true;
}

int FAULT_ENGINE::Add(FAULT fault) {
  const std::lock_guard lock(m_mutex);
  const std::optional<TIME> until =
      fault.lasts ? std::optional(m_clock() + *fault.lasts) : std::nullopt;
  m_faults.push_back({++m_last, std::move(fault), until});
  return m_last;
}

std::vector<ACTIVE_FAULT> FAULT_ENGINE::List() const {
  const std::lock_guard lock(m_mutex);
  const TIME now = m_clock();
  std::vector<ACTIVE_FAULT> list;
  for (ACTIVE_FAULT each : m_faults) {
    if (each.until) {
      each.fault.lasts = std::chrono::duration_cast<std::chrono::milliseconds>(*each.until - now);
    }
    if (!each.until || now < *each.until) {
      list.push_back(std::move(each));
    }
  }
  return list;
}

bool FAULT_ENGINE::Clear(int number) {
  const std::lock_guard lock(m_mutex);
  return std::erase_if(m_faults,
                       [number](const ACTIVE_FAULT& each) { return each.number == number; }) > 0;
}

void FAULT_ENGINE::ClearAll() {
  const std::lock_guard lock(m_mutex);
  m_faults.clear();
}

std::vector<std::string> FAULT_ENGINE::Apply(const REQUEST& request, REPLY& reply) {
  const std::lock_guard lock(m_mutex);
  if (m_faults.empty()) {
    return {};
  }
  const TIME now = m_clock();
  std::vector<std::string> applied;
  std::erase_if(m_faults,
                [now](const ACTIVE_FAULT& each) { return each.until && now >= *each.until; });
  for (ACTIVE_FAULT& each : m_faults) {
    FAULT& fault = each.fault;
    if (!Matches(fault, request.frame) || !ApplyFault(fault, request.frame, reply)) {
      continue;
    }
    applied.push_back(DescribeEffect(fault));
    if (fault.times) {
      --*fault.times;
    }
  }
  std::erase_if(m_faults, [](const ACTIVE_FAULT& each) { return each.fault.times == 0U; });
  return applied;
}

}  // namespace sim
