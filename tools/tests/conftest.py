"""What is tested here are scripts, which find each other as they lie."""

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ("tools", "tools/mutants", "devkit")]
