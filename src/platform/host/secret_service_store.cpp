#include "platform/host/secret_service_store.h"


#ifdef MIRLO_HAVE_LIBSECRET
#include <libsecret/secret.h>
#endif

namespace mirlo::host {

#ifdef MIRLO_HAVE_LIBSECRET

namespace {

const SecretSchema* schema() {
  static const SecretSchema kSchema = {
      "io.mirlo.app.Secret",
      SECRET_SCHEMA_NONE,
      {
          {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
          {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
      },
      0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
  return &kSchema;
}

std::int32_t statusOf(GError* error) {
  std::int32_t status = error->code > 0 ? -error->code : (error->code < 0 ? error->code : -1);
  g_error_free(error);
  return status;
}

}  // namespace

bool SecretServiceStore::available() {
  GError* error = nullptr;
  // Connecting is not enough (a bus without the service still gives a proxy): the service must
  // answer, and have a default collection for new items to go to.
  SecretService* service = secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, &error);
  if (!service) {
    if (error) g_error_free(error);
    return false;
  }
  SecretCollection* collection =
      secret_collection_for_alias_sync(service, SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, nullptr, &error);
  if (error) g_error_free(error);
  const bool answers = collection != nullptr;
  if (collection) g_object_unref(collection);
  g_object_unref(service);
  return answers;
}

std::int32_t SecretServiceStore::deleteItems(const std::string& service) {
  GError* error = nullptr;
  // Removes every matching item, not just the first.
  gboolean removed = secret_password_clear_sync(schema(), nullptr, &error, "service", service.c_str(), nullptr);
  if (error) return statusOf(error);
  return removed ? 0 : kItemNotFound;
}

std::int32_t SecretServiceStore::replaceItem(const std::string& service, const std::string& bytes) {
  GError* error = nullptr;
  SecretValue* value = secret_value_new(bytes.data(), static_cast<gssize>(bytes.size()), "text/plain");
  const std::string label = "Mirlo (" + service + ")";
  gboolean stored = secret_password_store_binary_sync(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), value,
                                                      nullptr, &error, "service", service.c_str(), nullptr);
  secret_value_unref(value);
  if (error) return statusOf(error);
  return stored ? 0 : kUnavailable;
}

std::int32_t SecretServiceStore::copyItem(const std::string& service, std::string& out) {
  GError* error = nullptr;
  SecretValue* value = secret_password_lookup_binary_sync(schema(), nullptr, &error, "service", service.c_str(),
                                                         nullptr);
  if (error) return statusOf(error);
  if (!value) return kItemNotFound;
  gsize length = 0;
  const gchar* data = secret_value_get(value, &length);
  out.assign(data, length);
  secret_value_unref(value);
  return 0;
}

#else  // no libsecret in this build: never available, every call refused

bool SecretServiceStore::available() { return false; }
std::int32_t SecretServiceStore::deleteItems(const std::string&) { return kUnavailable; }
std::int32_t SecretServiceStore::replaceItem(const std::string&, const std::string&) { return kUnavailable; }
std::int32_t SecretServiceStore::copyItem(const std::string&, std::string&) { return kUnavailable; }

#endif

}  // namespace mirlo::host
