// A small library that the symbol tests read. It is built, stripped and split by the build system in several ways.
#include <cstdint>

namespace Fixture
{

// Two names for readers: one with C++ arguments, one that only a full symbol table holds.
__attribute__((visibility("default"), noinline)) int Compute(int inValue, const char* inText)
{
    return inValue * 3 + (inText != nullptr ? *inText : 0);
}

__attribute__((noinline, used)) static int Hidden(int inValue)
{
    return inValue ^ 0x55;
}

} // namespace Fixture

extern "C"
{
    __attribute__((visibility("default"))) int FixtureExported(int inValue)
    {
        return Fixture::Compute(inValue, "x") + Fixture::Hidden(inValue);
    }
    __attribute__((visibility("default"), weak, alias("FixtureExported"))) int AFixtureAlias(int inValue);

    __attribute__((visibility("default"))) uintptr_t FixtureHiddenAddress()
    {
        return reinterpret_cast<uintptr_t>(&Fixture::Hidden);
    }

    // Functions written in assembly: bare labels without a size, one of them within a proper function.
    asm(R"(
        .text
        .globl FixtureLabel
    FixtureLabel:
        nop
        ret
        .globl FixtureAssembly
        .type FixtureAssembly, @function
    FixtureAssembly:
        nop
        .globl FixtureInnerLabel
    FixtureInnerLabel:
        nop
        ret
        .size FixtureAssembly, . - FixtureAssembly
    )");

    static int ChosenFunction()
    {
        return 7;
    }
    __attribute__((visibility("hidden"))) int (*FixtureResolver())()
    {
        return &ChosenFunction;
    }
    __attribute__((visibility("hidden"), ifunc("FixtureResolver"))) int FixtureChosen();

    // Addresses of the stubs through which this library calls another one's function and a chosen one of its own.
    __attribute__((visibility("default"))) uintptr_t FixtureStubAddress()
    {
        uintptr_t address = 0;
        asm("lea getenv@PLT(%%rip), %0" : "=r"(address));
        return address;
    }
    __attribute__((visibility("default"))) uintptr_t FixtureChosenStubAddress()
    {
        uintptr_t address = 0;
        asm("lea FixtureChosen@PLT(%%rip), %0" : "=r"(address));
        return address + static_cast<uintptr_t>(FixtureChosen() - 7);
    }
}
