// Both settings stores: the global one with its RC4-enciphered records, and
// the local one whose AES-GCM entries are bound to a machine identifier that
// both builds pretend to have.
#include <cstring>
#include <filesystem>
#include <string>

#include "aostore/aostore.h"
#include "compat/fixtures.h"
#include "platform/base.h"

namespace ao::compat {
namespace {

constexpr char kGlobal[] = "global";
constexpr char kLocal[] = "local";
constexpr char kMachine[] = "aostore-compat-machine-4f1d2c";
constexpr char kLocalStream[] = "Compat";
constexpr int kLocalSize = 40;
// Long enough that the logins made while writing are still valid when the
// other build reads them.
constexpr uint16_t kValidityHours = 24 * 30;

ZelvanorPermissionsStruct AlicesRights() {
  ZelvanorPermissionsStruct rights{};
  for (int row = 0; row < ZelvanorPermissionsStruct::kRows; ++row) {
    for (int column = 0; column < ZelvanorPermissionsStruct::kColumns; ++column) {
      rights.value[row][column] = static_cast<uint32_t>(row * 0x10001 + column * 0x1000000);
    }
  }
  return rights;
}

// Pretends to be the one machine both builds write and read for.
class PretendMachine {
 public:
  explicit PretendMachine(const char* identifier) { platform::SetSystemIdentifierForTesting(identifier); }
  ~PretendMachine() { platform::SetSystemIdentifierForTesting(nullptr); }
  PretendMachine(const PretendMachine&) = delete;
  PretendMachine& operator=(const PretendMachine&) = delete;
};

void WriteGlobal(const std::string& folder, Problems& problems) {
  std::string data = In(folder, kGlobal);
  CGlobalSettingStgFile store;
  if (!problems.Expect(store.Initialize(data.data()) == 1, "initialising the global store")) return;
  store.UpdateSettings(1, 1, 1, 0, kValidityHours);
  ZelvanorPermissionsStruct rights = AlicesRights();
  problems.Expect(store.UpdateUserProfile("alice", "alice-secret", &rights, nullptr, 0) == 1, "storing alice");
  Bytes assets = Pattern(300, 50);
  problems.Expect(store.UpdateUserProfile("bob", "bob-secret", nullptr, assets.data(), static_cast<int>(assets.size())) ==
                      1,
                  "storing bob");
}

void VerifyGlobal(const std::string& folder, Problems& problems) {
  std::string data = In(folder, kGlobal);
  CGlobalSettingStgFile store;
  if (!problems.Expect(store.Initialize(data.data()) == 1, "loading the global store")) return;
  problems.Expect(store.IsAuthenticateUsersEnabled() == 1, "the global settings record");

  GlobalUserTypeEnum type{};
  if (problems.Expect(store.TestUserProfile("alice", "alice-secret", &type) == 1, "alice's login") &&
      problems.Expect(type == GlobalUserZelvanorPermissions, "alice's type")) {
    ZelvanorPermissionsStruct rights{};
    store.GetZelvanorPermissions(&rights);
    const ZelvanorPermissionsStruct expected = AlicesRights();
    problems.Expect(std::memcmp(&rights, &expected, sizeof rights) == 0, "alice's rights");
  }
  if (problems.Expect(store.TestUserProfile("bob", "bob-secret", &type) == 1, "bob's login") &&
      problems.Expect(type == GlobalUserAssetPermissions, "bob's type")) {
    unsigned char* assets = nullptr;
    uint32_t length = 0;
    problems.Expect(store.GetAssetPermissions(&assets, &length) == 1 && assets != nullptr &&
                        Bytes(assets, assets + length) == Pattern(300, 50),
                    "bob's assets");
    aoFreeBuffer(assets);
  }
  problems.Expect(store.TestUserProfile("alice", "bob-secret", &type) == 0, "alice logs in with bob's password");
}

void WriteLocal(const std::string& folder, Problems& problems) {
  const std::string local = In(folder, kLocal);
  std::error_code error;
  std::filesystem::create_directories(local, error);
  PretendMachine machine(kMachine);
  CLocalSettingStgFile store;
  if (!problems.Expect(store.OpenStgFolder(0, kLocalStream, 1, local.c_str()) == 1, "creating the local store")) return;
  Bytes value = Pattern(kLocalSize, 60);
  problems.Expect(store.WriteLocalSettingEntry("window", value.data(), kLocalSize) == 1, "writing a local entry");
}

void VerifyLocal(const std::string& folder, Problems& problems) {
  const std::string local = In(folder, kLocal);
  CLocalSettingStgFile store;
  if (!problems.Expect(store.OpenStgFolder(0, kLocalStream, 0, local.c_str()) == 1, "opening the local store")) return;
  Bytes value(kLocalSize);
  {
    PretendMachine machine(kMachine);
    problems.Expect(store.ReadLocalSettingEntry("window", value.data(), kLocalSize) == 1 &&
                        value == Pattern(kLocalSize, 60),
                    "the local entry on the same machine");
  }
  PretendMachine elsewhere("another-machine");
  problems.Expect(store.ReadLocalSettingEntry("window", value.data(), kLocalSize) == 0,
                  "the local entry read on another machine");
}

}  // namespace

Problems WriteSettings(const std::string& folder) {
  Problems problems;
  WriteGlobal(folder, problems);
  WriteLocal(folder, problems);
  return problems;
}

Problems VerifySettings(const std::string& folder) {
  Problems problems;
  VerifyGlobal(folder, problems);
  VerifyLocal(folder, problems);
  return problems;
}

}  // namespace ao::compat
