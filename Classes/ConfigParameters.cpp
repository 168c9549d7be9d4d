#include "Classes/ConfigParameters.h"

#include "platform/Host.h"

namespace qx {
namespace {

std::string hostText(std::string_view selector) {
  const Value answer = QX().perform(selector, {});
  const std::string* text = answer.asText();
  return text ? *text : std::string();
}

}  // namespace

ConfigParameters ConfigParameters::readFromHost() {
  return {hostText("Account_GetUserId"), hostText("Account_GetAccessToken"),
          Url::parse(hostText("QXConfig_getServerAddress"))};
}

}  // namespace qx
