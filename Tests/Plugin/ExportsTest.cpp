// What the dynamic linker sees of the library.
#include <fcntl.h>
#include <gelf.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace
{

class ExportsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        elf_version(EV_CURRENT);
        mFile = open(THREADS_MODEL_PLUGIN_PATH, O_RDONLY | O_CLOEXEC);
        ASSERT_GE(mFile, 0);
        mElf = elf_begin(mFile, ELF_C_READ, nullptr);
        ASSERT_NE(mElf, nullptr);
    }

    void TearDown() override
    {
        elf_end(mElf);
        close(mFile);
    }

    // Calls back with each entry of the sections of one type: the section's data, the index of its texts, the entry's index.
    template <class Callback>
    void ForEachEntry(uint32_t inSectionType, Callback inCallback) const
    {
        for (Elf_Scn* section = elf_nextscn(mElf, nullptr); section != nullptr; section = elf_nextscn(mElf, section))
        {
            GElf_Shdr header;
            ASSERT_NE(gelf_getshdr(section, &header), nullptr);
            if (header.sh_type != inSectionType)
                continue;
            Elf_Data* data = elf_getdata(section, nullptr);
            for (size_t i = 0; i < header.sh_size / header.sh_entsize; ++i)
                inCallback(data, header.sh_link, static_cast<int>(i));
        }
    }

    int mFile = -1;
    Elf* mElf = nullptr;
};

TEST_F(ExportsTest, FourNamesAndNoMoreInALibraryThatIsNamedAsItsFile)
{
    std::vector<std::string> exports;
    ForEachEntry(SHT_DYNSYM,
                 [&](Elf_Data* inData, size_t inTexts, int inIndex)
                 {
                     GElf_Sym symbol;
                     ASSERT_NE(gelf_getsym(inData, inIndex, &symbol), nullptr);
                     if (symbol.st_shndx != SHN_UNDEF)
                         exports.emplace_back(elf_strptr(mElf, inTexts, symbol.st_name));
                 });
    EXPECT_THAT(exports, testing::UnorderedElementsAre("moduleDescriptor", "createThreadsModelPlugin",
                                                       "destroyThreadsModelPlugin", "initializeTracing"));
    std::vector<std::string> libraries;
    ForEachEntry(SHT_DYNAMIC,
                 [&](Elf_Data* inData, size_t inTexts, int inIndex)
                 {
                     GElf_Dyn entry;
                     ASSERT_NE(gelf_getdyn(inData, inIndex, &entry), nullptr);
                     if (entry.d_tag == DT_SONAME)
                         libraries.emplace_back(elf_strptr(mElf, inTexts, entry.d_un.d_val));
                 });
    EXPECT_THAT(libraries, testing::ElementsAre("ThreadsModelPlugin.so"));
}

} // namespace
