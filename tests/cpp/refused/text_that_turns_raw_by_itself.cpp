// Refused: conversion|could not convert|no viable
#include <tarn.hpp>

int main() {
#ifdef REFUSED
  const tarn::Raw markup = "<b>";
#else
  const tarn::Raw markup("<b>");
#endif
  return markup.text().empty() ? 1 : 0;
}
