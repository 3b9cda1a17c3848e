// Values of the declared types: their size and form on the wire, and how a default is written in C++.
#pragma once

#include "Model.h"

#include <string>

namespace RecordGen {

// Bytes on the wire; 0 where they vary.
size_t wireSize(ValueType const& type);

// Why the literal can't be a value of the type; empty when it can. No literal
// stands for the type's own default.
std::string literalProblem(ValueType const& type, Literal const& literal);

// The value in its wire form. The literal must have no problem.
std::string wireForm(ValueType const& type, Literal const& literal);

// The number that the literal, or the default of the type, stands for. Of numbers, booleans and enumerations.
uint64_t numberOf(ValueType const& type, Literal const& literal);

// The value as documents show it: `300`, `"1-4094"`, `access_`; empty for what has no short form.
std::string valueText(ValueType const& type, Literal const& literal);

// The number as written, and whether it is one: decimal or 0x, within 64 bits;
// negative ones in two's complement.
bool readNumber(std::string const& text, uint64_t& number, bool& isNegative);

// Greatest number of an unsigned kind.
uint64_t maxOf(Kind kind);

} // namespace RecordGen
