"""``python -m tarn.gevserver`` runs the program ``tarn-camera``."""

import sys

try:
    from tarn.camera.command import main
except ModuleNotFoundError as error:
    sys.exit(f"{error.name} is missing, which the camera program needs: pip install click numpy pillow")

main(prog_name="python -m tarn.gevserver")
