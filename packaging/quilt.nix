# For Nix: nix-build -E '(import <nixpkgs> {}).callPackage ./packaging/quilt.nix {}'
{ lib, stdenv, cmake, ninja, zlib, openssl }:

stdenv.mkDerivation {
  pname = "quilt-sdb";
  version = lib.removePrefix "## " (lib.head (lib.splitString "," (lib.findFirst (lib.hasPrefix "## ") ""
    (lib.splitString "\n" (builtins.readFile ../CHANGELOG.md)))));
  src = lib.cleanSource ../.;

  nativeBuildInputs = [ cmake ninja ];
  buildInputs = [ zlib.static zlib.dev (openssl.override { static = true; }) ];

  meta = {
    description = "Analyser of Windows application-compatibility shim databases";
    license = lib.licenses.mit;
    mainProgram = "quilt";
    platforms = lib.platforms.linux;
  };
}
