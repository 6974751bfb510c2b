// Compile-log rewriting and the vendor rule: pure functions, no GL context.
#include <opengl/Program.h>
#include <opengl/Shader.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Tavrin::OpenGL::Program;
using Tavrin::OpenGL::Shader;

namespace
{
// An assembled source of three lines: line 1 from common.glsl line 7, lines 2 and 3 from
// lighting.glsl lines 12 and 13.
const std::vector<int> lines = {7, 12, 13};
const std::vector<std::string> files = {"common.glsl", "lighting.glsl", "lighting.glsl"};

struct LogCase
{
    const char* name;
    Program::Vendor vendor;
    const char* log;
    const char* mapped;
};

class ShaderLogMapping : public ::testing::TestWithParam<LogCase>
{
};
} // namespace

TEST_P(ShaderLogMapping, RewritesEachLine)
{
    EXPECT_EQ(Shader::mapInfoLog(GetParam().log, lines, files, GetParam().vendor), GetParam().mapped);
}

INSTANTIATE_TEST_SUITE_P(
    Logs, ShaderLogMapping,
    ::testing::Values(
        // NVIDIA form: number between the parentheses, mapped line + 1, " (" and ") ".
        LogCase{"NvidiaError", Program::NVIDIA, "0(3) : error C0000: syntax error",
                "lighting.glsl (14) : error C0000: syntax error"},
        LogCase{"NvidiaLineOne", Program::NVIDIA, "0(1) : warning C7050: x", "common.glsl (8) : warning C7050: x"},
        LogCase{"NvidiaLineZero", Program::NVIDIA, "0(0) : error C0501: y", "common.glsl (8) : error C0501: y"},
        LogCase{"NvidiaNegative", Program::NVIDIA, "0(-99999999999) : e", "common.glsl (8) : e"},
        LogCase{"NvidiaNoParentheses", Program::NVIDIA, "error: bad", "common.glsl (8) : bad"},
        LogCase{"NvidiaNoColon", Program::NVIDIA, "0(2) no colon", "0(2) no colon"},
        LogCase{"NvidiaBeyondEntries", Program::NVIDIA, "0(4) : error C0000: z", "0(4) : error C0000: z"},
        // ATI form: number between the second and third colon, mapped line as stored, "(" and ") : ".
        LogCase{"AtiError", Program::ATI, "ERROR: 0:2: 'x' : undeclared identifier",
                "lighting.glsl(12) : 'x' : undeclared identifier"},
        LogCase{"AtiLineOne", Program::ATI, "WARNING: 0:1: unused", "common.glsl(7) : unused"},
        LogCase{"AtiLineZero", Program::ATI, "ERROR: 0:0: early", "common.glsl(7) : early"},
        LogCase{"AtiOneColon", Program::ATI, "ERROR: compilation failed", "ERROR: compilation failed"},
        LogCase{"AtiTwoColons", Program::ATI, "ERROR: 0:3 nothing", "ERROR: 0:3 nothing"},
        LogCase{"AtiNoColon", Program::ATI, "2 compilation errors", "2 compilation errors"},
        LogCase{"AtiEndsAtThirdColon", Program::ATI, "ERROR: 0:3:", "lighting.glsl(13) : "},
        LogCase{"AtiMessageStartsTwoAfter", Program::ATI, "ERROR: 0:3:xy", "lighting.glsl(13) : y"},
        LogCase{"AtiBeyondEntries", Program::ATI, "ERROR: 0:40: far", "ERROR: 0:40: far"},
        // Lines are split at line feeds, empty ones dropped, and joined without a final one.
        LogCase{"NvidiaSeveralLines", Program::NVIDIA, "0(2) : error A\n\n0(3) : error B\n",
                "lighting.glsl (13) : error A\nlighting.glsl (14) : error B"},
        LogCase{"AtiSeveralLines", Program::ATI, "ERROR: 0:3: a\nERROR: 2 compilation errors.\n",
                "lighting.glsl(13) : a\nERROR: 2 compilation errors."},
        LogCase{"EmptyLog", Program::ATI, "", ""}),
    [](const ::testing::TestParamInfo<LogCase>& info) { return std::string(info.param.name); });

TEST(ShaderLogMapping, EntriesMissingFromEitherVectorPassTheLineThrough)
{
    const std::string nvidia = "0(2) : error C0000: e";
    const std::string ati = "ERROR: 0:2: e";
    for (Program::Vendor vendor : {Program::NVIDIA, Program::ATI})
    {
        const std::string& log = vendor == Program::NVIDIA ? nvidia : ati;
        EXPECT_EQ(Shader::mapInfoLog(log, {}, {}, vendor), log);
        EXPECT_EQ(Shader::mapInfoLog(log, {1}, {"a.glsl", "b.glsl"}, vendor), log);
        EXPECT_EQ(Shader::mapInfoLog(log, {1, 2}, {"a.glsl"}, vendor), log);
    }
    // The widest line number still prints exactly.
    EXPECT_EQ(Shader::mapInfoLog("0(1) : e", {2147483647}, {"a.glsl"}, Program::NVIDIA), "a.glsl (2147483648) : e");
}

TEST(ProgramVendor, NvidiaOnlyWhenTheNameSaysSoInCapitals)
{
    EXPECT_EQ(Program::vendorFromName("NVIDIA Corporation"), Program::NVIDIA);
    EXPECT_EQ(Program::vendorFromName("Vendor: NVIDIA"), Program::NVIDIA);
    EXPECT_EQ(Program::vendorFromName("ATI Technologies Inc."), Program::ATI);
    EXPECT_EQ(Program::vendorFromName("Intel"), Program::ATI);
    EXPECT_EQ(Program::vendorFromName("nvidia"), Program::ATI);
    EXPECT_EQ(Program::vendorFromName("Mesa"), Program::ATI);
    EXPECT_EQ(Program::vendorFromName(""), Program::ATI);
    // Nothing in this suite calls initVendor(): the process-wide vendor keeps its start value.
    EXPECT_EQ(Program::getVendor(), Program::NVIDIA);
}
