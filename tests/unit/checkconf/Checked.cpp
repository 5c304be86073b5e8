#include "tests/unit/checkconf/Checked.h"

#include <stdexcept>

namespace vorn {

namespace unit {

std::string GoodConfig(const FOLDER& folder) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<VORNConfig>
  <Debuglog Loglevel="0" File=")" +
         folder.File("vorn.log") + R"("/>
  <Speed Percent="50"/>
  <InitPollState Action="TRUE"/>
  <AutoDiscover Action="FALSE"/>
  <Interfaces>
    <Interface Name="CAE" Port="5000" InpSeparator="\r\n" OutSeparator="\r\n"/>
    <Interface Name="IO" Port="5001" InpSeparator="\r\n" OutSeparator="\r\n"/>
    <Interface Name="MON" Port="5002" InpSeparator="\r\n" OutSeparator="\r\n"/>
  </Interfaces>
</VORNConfig>
)";
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) {
    throw std::logic_error("not in the text: " + from);
  }
  return text.replace(at, from.size(), to);
}

checkconf::CHECK_RESULT Checked(const FOLDER& folder, const std::string& text, bool checkMachine) {
  WriteFile(folder.File("vornconf.xml"), text);
  return checkconf::CheckConfig(folder.File("vornconf.xml"),
                                {checkconf::CurrentUser(), checkMachine});
}

std::vector<std::string> Ids(const checkconf::CHECK_RESULT& result) {
  std::vector<std::string> ids;
  for (const checkconf::FINDING& finding : result.findings) {
    ids.push_back(std::to_string(finding.position.line) + ":" +
                  std::to_string(finding.position.column) + " " + FindKind(finding.kind).id);
  }
  return ids;
}

}  // namespace unit

}  // namespace vorn
