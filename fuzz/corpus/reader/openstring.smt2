(echo "no end
