// A second telling of the console, for tests to hold the library against: no code, no table and no type of the library's is in it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Exhaustive
{

constexpr int c_nTypes = 7;
constexpr int c_nGroups = 51; // path types
constexpr int c_nScopes = 4;
constexpr int c_nAddresses = 241339;

// String to meter, and store to safe.
enum enTypes : int
{
    enStrings,
    enRotaries,
    enSwitches,
    enIntegers,
    enFaders,
    enOthers,
    enMeters
};

enum enScopes : int
{
    enStore,
    enRecall,
    enGlobal,
    enSafe
};

struct stAddress
{
    int nType;
    int nPathType;
    int nPath;
    int nParam;
};

std::string Text(const stAddress& address);

// ---- Limits -------------------------------------------------------------------------------------------------------------------

// 0 where there is no such path type or message type.
int MaxPaths(int nPathType);
int MaxParams(int nType, int nPathType);
int CountOf(int nType);

// Bytes of an element; a switch counts as one and is a bit in its block.
int WidthOf(int nType);

bool IsType(int nType);
bool Exists(const stAddress& address);

// The flat number of an address in its type's blocks by plain arithmetic, whatever its path and parameter; -1 outside the block.
std::int64_t FlatIndex(const stAddress& address);

// Every address of the console, in flat order.
const std::vector<stAddress>& EveryAddress();

// True for what the simple sender must not send.
bool IsFiltered(int nType, int nPathType, int nParam);

// What a value array prints on standard error of an address that it refuses, nothing of one that it takes: by its range check
// alone, and by an operation of this name.
std::string RangeCheckText(const stAddress& address);
std::string RefusalText(const std::string& strOperation, const stAddress& address);

// ---- Values -------------------------------------------------------------------------------------------------------------------

// The bytes of an element as this machine has them in its block; of a switch one byte, 0 or 1. The rest is 0.
typedef std::array<unsigned char, 13> tValue;
typedef std::vector<unsigned char> tBlock;

// What a number stands for in each type: another number, another value, as far as the type is wide enough. Those of n and
// n ^ 1 differ in every type.
tValue Numbered(int nType, unsigned int unNumber);

// The serialised record of a change: marker 1, flag 0, the address, and the value, big-endian; switches and meters as ints.
tBlock WireRecord(const stAddress& address, const tValue& value);

bool HasSI(int nType);

// ---- One image ----------------------------------------------------------------------------------------------------------------

// What an image holds, element by element in flat order.
struct stConsoleModel
{
    stConsoleModel();

    // A number for every value (and the negative one for its SI float), from unFirst on.
    void Number(unsigned int unFirst);

    // Each scope's flags in a pattern of its own.
    void Flag(unsigned int unSeed);

    // The blocks as they should lie in memory: elements packed, bits from the least significant of byte 0 on.
    tBlock ValueBlock(int nType) const;
    tBlock FlagBlock(int nScope, int nType) const;

    // The same as the wire has it: the words of rotaries, integers, faders and others big-endian.
    tBlock WireBlock(int nType) const;

    std::vector<tValue> aValues[c_nTypes];
    std::vector<float> aSI[c_nTypes]; // of rotaries and faders
    tBlock aFlags[c_nScopes][c_nTypes];
};

tBlock Packed(const tBlock& flags);

} // namespace Exhaustive
