#include "Classes/UploadTokenModel.h"

#include <array>
#include <string_view>
#include <utility>

namespace qx {
namespace {

/// The error names the member but never its content, because most members are secrets.
Error memberError(std::string_view key) {
  return {"APIDecoder", 1,
          "the member \"" + std::string(key) + "\" of a credential record is missing or mistyped"};
}

}  // namespace

Result<UploadTokenModel> UploadTokenModel::decode(const Value& value, const APIDecoder& decoder) {
  const Dictionary* object = value.asDictionary();
  if (object == nullptr) return Error{"APIDecoder", 1, "a credential record is not an object"};

  UploadTokenModel model;
  const std::array<std::pair<std::string_view, std::string*>, 7> texts = {{
      {"access_key_id", &model.accessKeyId},
      {"access_key_secret", &model.accessKeySecret},
      {"security_token", &model.securityToken},
      {"bucket", &model.bucket},
      {"region", &model.region},
      {"authorized_path", &model.authorizedPath},
      {"download_url_prefix", &model.downloadUrlPrefix},
  }};
  for (const auto& [key, field] : texts) {
    std::optional<std::string> text = readText(*object, key);
    if (!text) return memberError(key);
    *field = *std::move(text);
  }
  const auto expiration = object->find("expiration");
  if (expiration == object->end()) return memberError("expiration");
  const Result<Date> date = decoder.date(expiration->second);
  if (!date) return memberError("expiration");
  model.expiration = *date;
  return model;
}

OrderedMembers UploadTokenModel::encode() const {
  return {
      {"access_key_id", accessKeyId},
      {"access_key_secret", accessKeySecret},
      {"security_token", securityToken},
      {"expiration", expiration},
      {"bucket", bucket},
      {"region", region},
      {"authorized_path", authorizedPath},
      {"download_url_prefix", downloadUrlPrefix},
  };
}

}  // namespace qx
