#include "Classes/ConfigParameters.h"

namespace qx {
namespace {

std::string hostText(QXMediator& host, std::string_view selector) {
  const Value answer = host.perform(selector, {});
  const std::string* text = answer.asText();
  return text ? *text : std::string();
}

}  // namespace

ConfigParameters ConfigParameters::readFromHost(QXMediator& host) {
  return {hostText(host, "Account_GetUserId"), hostText(host, "Account_GetAccessToken"),
          Url::parse(hostText(host, "QXConfig_getServerAddress"))};
}

}  // namespace qx
