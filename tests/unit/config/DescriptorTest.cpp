#include "vorn/config/CONFIG_DESCRIPTOR.h"

#include <gtest/gtest.h>

namespace {

INTERFACE_DESCRIPTOR FilledDescriptor() {
  INTERFACE_DESCRIPTOR descriptor;
  descriptor.name = "CAE";
  descriptor.port = 5000;
  descriptor.state = 3;
  descriptor.outSeparator = "|";
  descriptor.inpSeparator = "\n";
  descriptor.threadDelayUs = 2525;
  return descriptor;
}

void ExpectFilled(const INTERFACE_DESCRIPTOR& descriptor) {
  EXPECT_EQ(descriptor.name, "CAE");
  EXPECT_EQ(descriptor.port, 5000);
  EXPECT_EQ(descriptor.state, 3);
  EXPECT_EQ(descriptor.outSeparator, "|");
  EXPECT_EQ(descriptor.inpSeparator, "\n");
  EXPECT_EQ(descriptor.threadDelayUs, 2525);
}

}  // namespace

TEST(InterfaceDescriptor, HasTheDocumentedDefaults) {
  const INTERFACE_DESCRIPTOR descriptor;
  EXPECT_EQ(descriptor.name, "");
  EXPECT_EQ(descriptor.port, 0);
  EXPECT_EQ(descriptor.state, 0);
  EXPECT_EQ(descriptor.outSeparator, "\r\n");
  EXPECT_EQ(descriptor.inpSeparator, "\r\n");
  EXPECT_EQ(descriptor.threadDelayUs, 5000);
}

TEST(InterfaceDescriptor, CopiesAllItsMembers) {
  const INTERFACE_DESCRIPTOR original = FilledDescriptor();
  const INTERFACE_DESCRIPTOR copy(original);  // NOLINT(performance-unnecessary-copy-initialization)
  ExpectFilled(copy);
  INTERFACE_DESCRIPTOR assigned;
  assigned = original;
  ExpectFilled(assigned);
}

TEST(ConfigDescriptor, HasTheDocumentedDefaults) {
  const CONFIG_DESCRIPTOR config;
  for (const INTERFACE_DESCRIPTOR* const interface :
       {&config.io, &config.cae, &config.mon, &config.spare}) {
    EXPECT_EQ(interface->name, "");
    EXPECT_EQ(interface->port, 0);
  }
  EXPECT_EQ(config.logFileName, "");
  EXPECT_EQ(config.logLevel, 0);
  EXPECT_EQ(config.errorText, "NONE");
  EXPECT_EQ(config.threadDelayUs, 5000);
  EXPECT_FALSE(config.polling);
  EXPECT_FALSE(config.autoDiscover);
}
