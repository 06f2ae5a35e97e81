find_package(vornutils 1.0 REQUIRED COMPONENTS utils ${COMPONENT})
