#pragma once

#include <string>

struct KrDatasetRecipe;

/// The recipe's text. For use inside the library.
namespace KrDatasetRecipeJson
{

/// Fills a new recipe from JSON. @param folder  that paths in it are relative to
/// @return what is wrong, with the JSON pointer of where; empty for nothing. `out` is then half-filled
std::string parse(const std::string& json, const std::string& folder, KrDatasetRecipe& out);

} // namespace KrDatasetRecipeJson
