// The process shell's table: every diagnostic function operators use, with
// the kind of each argument.
#include "diag/shell_table.h"

#include <cstdio>
#include <cstring>
#include <type_traits>
#include <utility>

#include "diag/diag.h"
#include "iftable/if_entry.h"
#include "platform/ifdb.h"
#include "platform/types.h"

int32_t pppoeplusIfEntryShowByUnit(uint32_t ifUnit) {
    tPppoePlusIfEntry* entry = pppoeplusIfEntryGet(ifUnit);
    if (entry == nullptr) {
        char name[ZEL_IF_NAME_LEN];
        std::memset(name, 0, sizeof(name));
        zelIfUnit2Name(ifUnit, name, sizeof(name));
        printf("ifUnit:%u%s%s has no pppoeplus entry\r\n", ifUnit, name[0] != 0 ? " " : "", name);
        return ZEL_ERR_NOT_FOUND;
    }
    return pppoeplusIfEntryShow(entry);
}

namespace {

// Whether the shell's argument kind `kind` fits a parameter of type P: an
// interface unit or an unsigned number for a u32, a signed number for an i32.
// A pointer fits no kind.
template <typename P>
constexpr bool pppoeplusShellKindFits(uint8_t kind) {
    if constexpr (std::is_same_v<P, uint32_t>) return kind == PROC_SHELL_ARG_U32 || kind == PROC_SHELL_ARG_IFUNIT;
    else if constexpr (std::is_same_v<P, int32_t>) return kind == PROC_SHELL_ARG_I32;
    else return false;
}

// The shell's entry for `Fn`: the arguments, which the shell has checked
// against their kinds, narrowed to Fn's parameter types.
template <auto Fn>
struct tPppoeplusShellCall;

template <typename... Params, int32_t (*Fn)(Params...)>
struct tPppoeplusShellCall<Fn> {
    static constexpr uint32_t arity = sizeof...(Params);

    template <uint8_t... Kinds>
    static constexpr bool fits() {
        return (pppoeplusShellKindFits<Params>(Kinds) && ...);
    }

    static int32_t entry(const int64_t* args) { return call(args, std::index_sequence_for<Params...>{}); }

    template <size_t... I>
    static int32_t call([[maybe_unused]] const int64_t* args, std::index_sequence<I...>) {
        return Fn(static_cast<Params>(args[I])...);
    }
};

// A row for `Fn`, called `name` in the shell, with one kind and one name per
// parameter; a row whose kinds do not match Fn's parameters does not compile.
template <auto Fn, uint8_t... Kinds, typename... Names>
constexpr tProcShellFunc pppoeplusShellRow(const char* name, Names... argNames) {
    using Call = tPppoeplusShellCall<Fn>;
    static_assert(sizeof...(Kinds) == Call::arity, "one argument kind per parameter");
    static_assert(sizeof...(Names) == Call::arity, "one argument name per parameter");
    static_assert(Call::arity <= PROC_SHELL_MAX_ARGS);
    static_assert(Call::template fits<Kinds...>(), "an argument kind that does not fit its parameter");
    return tProcShellFunc{name, &Call::entry, Call::arity, {Kinds...}, {argNames...}};
}

}  // namespace

// In the order of pppoeplusHelp, then the test functions. pppoeplusIfEntryShow
// takes an entry's address, which no operator can give: its row keeps the
// name operators know and takes an interface unit.
constexpr tProcShellFunc gPppoeplusShellFuncs[PPPOEPLUS_SHELL_FUNC_NUM] = {
    pppoeplusShellRow<&pppoeplusKeywordsShow>("pppoeplusKeywordsShow"),
    pppoeplusShellRow<&pppoeplusCommonFormatShow>("pppoeplusCommonFormatShow"),
    pppoeplusShellRow<&pppoeplusIfEntryShowByUnit, PROC_SHELL_ARG_IFUNIT>("pppoeplusIfEntryShow", "ifUnit"),
    pppoeplusShellRow<&pppoeplusIfShowAll>("pppoeplusIfShowAll"),
    pppoeplusShellRow<&pppoeplusTrustIfShowAll>("pppoeplusTrustIfShowAll"),
    pppoeplusShellRow<&pppoeplusShow>("pppoeplusShow"),
    pppoeplusShellRow<&pppoeplusSetPktFdRecvBufLen, PROC_SHELL_ARG_I32>("pppoeplusSetPktFdRecvBufLen", "bufLen"),
    pppoeplusShellRow<&pppoeplusTestForwardSet, PROC_SHELL_ARG_U32>("pppoeplusTestForwardSet", "enable"),
    pppoeplusShellRow<&pppoeplusHelp>("pppoeplusHelp"),
    pppoeplusShellRow<&pppoeplusTest>("pppoeplusTest"),
    pppoeplusShellRow<&pppoeplusLogTest, PROC_SHELL_ARG_IFUNIT>("pppoeplusLogTest", "ifUnit"),
    pppoeplusShellRow<&pppoeplusPonTest, PROC_SHELL_ARG_IFUNIT, PROC_SHELL_ARG_U32>("pppoeplusPonTest", "ifUnit",
                                                                                     "onuId"),
};

// The table's size is written in the header; a row left out would be an
// empty one.
static_assert([] {
    for (const tProcShellFunc& f : gPppoeplusShellFuncs)
        if (f.name == nullptr) return false;
    return true;
}());
