// For all credentials that a backend may hand out, an object's address can be made and sent.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Classes/StorageGetUploadConfigRequest.h"
#include "http/Headers.h"
#include "http/Rfc3339.h"
#include "http/UriEncoding.h"
#include "platform/Url.h"
#include "platforms/shared/NlohmannJson.h"
#include "s3/StoreAddress.h"

namespace {

class Decoder : public qx::APIDecoder {
 public:
  qx::Result<qx::Value> decode(const qx::Data& body) const override {
    return qx::NlohmannJson().decode(body);
  }
  qx::Result<qx::Date> date(const qx::Value& value) const override {
    const std::string* text = value.asText();
    const auto seconds = text != nullptr ? qx::parseRfc3339(*text) : std::nullopt;
    if (!seconds) return qx::Error{"APIDecoder", 1, "not a date"};
    return qx::Date{*seconds};
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const qx::Data body(std::string(reinterpret_cast<const char*>(bytes), size));
  const auto response = qx::StorageGetUploadConfigResponse::decode(body, Decoder());
  if (!response) return 0;
  const auto endpoint = qx::StoreEndpoint::parse("https://s3.example.com");
  for (const auto& [scope, model] : response->uploadTokenMap) {
    const std::string key = model.authorizedPath + "a.jpg";
    const std::string url =
        qx::addressOf(*endpoint, model.bucket, qx::percentEncodePath(key)).url();
    if (qx::checkSendable(url, {})) std::abort();
    if (const auto shown = qx::Url::parse(model.downloadUrlPrefix + "/" + key)) {
      (void)shown->lastPathComponent();
    }
  }
  return 0;
}
