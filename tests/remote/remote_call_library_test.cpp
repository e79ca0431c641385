// Finding, starting and stopping the remote-call library.
#include "remote/remote_call_library.h"

#include "support/process_set_up.h"
#include "support/scripted_server.h"

namespace qx_test {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kCreate = "create CorvaneClient CorvaneServer 0 0 4294967295 0 0 0 0 1 0";

TEST(RemoteCallLibrary, IsFoundStartedAndStopped) {
    ScriptedServer server;
    server.Version[0] = 5;
    qx::RemoteCallLibrary library;
    library.Start();
    EXPECT_TRUE(library.IsActive());
    EXPECT_EQ(server.TakeLog(), (Lines{"initialize 4.0.0", kCreate}));
    library.Stop();
    EXPECT_FALSE(library.IsActive());
    EXPECT_EQ(server.TakeLog(), (Lines{"close", "terminate"}));
    library.Stop();
    library.Start();
    EXPECT_TRUE(library.IsActive());
    server.TakeLog();
    library.Abandon();
    EXPECT_FALSE(library.IsActive());
    EXPECT_EQ(server.TakeLog(), (Lines{"terminate"}));
}

TEST(RemoteCallLibrary, IsLeftAloneWhenItCannotBeUsed) {
    struct Case {
        const char* Failing;
        std::array<uint32_t, 3> Version;
        Lines Log;
    };
    for (const Case& c : {Case{"Initialize", {4, 0, 0}, {"initialize 4.0.0"}},
                          Case{"", {3, 255, 255}, {"initialize 4.0.0", "terminate"}},
                          Case{"Create", {4, 0, 0}, {"initialize 4.0.0", kCreate, "terminate"}}}) {
        ScriptedServer server;
        server.Failing = {{c.Failing, 7}};
        std::copy(c.Version.begin(), c.Version.end(), server.Version);
        qx::RemoteCallLibrary library;
        library.Start();
        EXPECT_FALSE(library.IsActive());
        library.Stop();
        EXPECT_EQ(server.Log, c.Log);
    }
}

// Loads nothing, or a library in which one function is missing.
class IncompleteModules final : public qx::ModuleService {
  public:
    IncompleteModules() { qx::thePlatform.Modules = this; }
    ~IncompleteModules() override { qx::thePlatform.Modules = &real_; }
    IncompleteModules(const IncompleteModules&) = delete;
    IncompleteModules& operator=(const IncompleteModules&) = delete;

    qx::OsModule* Load(const char* name) override {
        qx::OsModule* module = Missing.empty() ? nullptr : real_.Load(name);
        Loaded += module != nullptr;
        return module;
    }
    void* FunctionOf(qx::OsModule* module, const char* name) override {
        Asked.emplace_back(name);
        return name == Missing ? nullptr : real_.FunctionOf(module, name);
    }
    void Unload(qx::OsModule* module) override {
        --Loaded;
        real_.Unload(module);
    }

    std::string Missing;
    Lines Asked;
    int Loaded = 0;

  private:
    qx::ModuleService& real_ = *qx::thePlatform.Modules;
};

TEST(RemoteCallLibrary, MayBeMissingOrHaveOtherFunctions) {
    ScriptedServer server;
    IncompleteModules modules;
    const auto starts = [&] {
        qx::RemoteCallLibrary library;
        library.Start();
        const bool active = library.IsActive();
        library.Stop();
        EXPECT_EQ(modules.Loaded, 0);
        return active;
    };
    EXPECT_FALSE(starts());
    modules.Missing = "none";
    EXPECT_TRUE(starts());
    const Lines functions = modules.Asked;
    EXPECT_EQ(functions.size(), 8U);
    server.TakeLog();
    for (const std::string& function : functions) {
        modules.Missing = function;
        EXPECT_FALSE(starts()) << function;
    }
    EXPECT_EQ(server.Log, Lines{});
}

}  // namespace
}  // namespace qx_test
