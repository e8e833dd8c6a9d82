// Status codes that cross module boundaries. The engine speaks the platform's COM-style
// results (S_OK, S_FALSE for "no value", E_FAIL, E_POINTER); the settings store its own
// numbers. Nothing is thrown across a module boundary.
#pragma once

#include <cstdint>

namespace trovix {

using HRESULT = int32_t;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

inline constexpr bool Succeeded(HRESULT hr) { return hr >= 0; }
inline constexpr bool Failed(HRESULT hr) { return hr < 0; }

// The "no value" sentinel of rule bounds and expression values: low double word 0xDEAD,
// high double word 0xBEEF.
inline constexpr uint64_t kNoValue = 0x0000BEEF0000DEADull;

}  // namespace trovix
