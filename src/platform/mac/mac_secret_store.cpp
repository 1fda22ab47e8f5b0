#include "platform/mac/mac_secret_store.h"

#include <Security/Security.h>

#include "platform/mac/cf.h"

namespace mirlo::mac {

namespace {

CFOwned<CFDictionaryRef> dictionary(const void** keys, const void** values, CFIndex count) {
  return CFOwned<CFDictionaryRef>(CFDictionaryCreate(kCFAllocatorDefault, keys, values, count,
                                                     &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

class MacSecretStore final : public SecretStore {
 public:
  // The item is updated in place, so that no moment exists without it; only when there is none
  // yet is one added. Another program adding it between the two calls makes the add find a
  // duplicate: the update is then tried once more.
  std::int32_t replaceItem(const std::string& service, const std::string& bytes) override {
    auto name = makeString(service);
    CFOwned<CFDataRef> data(
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    if (!name || !data) return errSecParam;
    const void* queryKeys[] = {kSecClass, kSecAttrService};
    const void* queryValues[] = {kSecClassGenericPassword, name.get()};
    auto query = dictionary(queryKeys, queryValues, 2);
    const void* changeKeys[] = {kSecValueData, kSecAttrAccessible};
    const void* changeValues[] = {data.get(), kSecAttrAccessibleWhenUnlocked};
    auto changes = dictionary(changeKeys, changeValues, 2);
    if (!query || !changes) return errSecAllocate;
    OSStatus status = SecItemUpdate(query.get(), changes.get());
    if (status != errSecItemNotFound) return status;
    status = addItem(service, bytes);
    if (status != errSecDuplicateItem) return status;
    return SecItemUpdate(query.get(), changes.get());
  }

  std::int32_t deleteItems(const std::string& service) override {
    auto name = makeString(service);
    if (!name) return errSecParam;
    const void* keys[] = {kSecClass, kSecAttrService};
    const void* values[] = {kSecClassGenericPassword, name.get()};
    auto query = dictionary(keys, values, 2);
    if (!query) return errSecAllocate;
    return SecItemDelete(query.get());
  }

  std::int32_t addItem(const std::string& service, const std::string& bytes) {
    auto name = makeString(service);
    CFOwned<CFDataRef> data(
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    if (!name || !data) return errSecParam;
    const void* keys[] = {kSecClass, kSecAttrService, kSecValueData, kSecAttrAccessible};
    const void* values[] = {kSecClassGenericPassword, name.get(), data.get(), kSecAttrAccessibleWhenUnlocked};
    auto attributes = dictionary(keys, values, 4);
    if (!attributes) return errSecAllocate;
    return SecItemAdd(attributes.get(), nullptr);
  }

  std::int32_t copyItem(const std::string& service, std::string& out) override {
    out.clear();
    auto name = makeString(service);
    if (!name) return errSecParam;
    const void* keys[] = {kSecClass, kSecAttrService, kSecReturnData, kSecMatchLimit};
    const void* values[] = {kSecClassGenericPassword, name.get(), kCFBooleanTrue, kSecMatchLimitOne};
    auto query = dictionary(keys, values, 4);
    if (!query) return errSecAllocate;
    CFOwned<CFTypeRef> result;
    const OSStatus status = SecItemCopyMatching(query.get(), result.out());
    if (status != errSecSuccess) return status;
    if (!result || CFGetTypeID(result.get()) != CFDataGetTypeID()) return errSecItemNotFound;
    auto data = static_cast<CFDataRef>(result.get());
    out.assign(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<std::size_t>(CFDataGetLength(data)));
    return errSecSuccess;
  }
};

}  // namespace

std::unique_ptr<SecretStore> makeSecretStore() { return std::make_unique<MacSecretStore>(); }

}  // namespace mirlo::mac
